#pragma once

#include "support/MachineState.h"
#include "support/Names.h"
#include "support/SampleInstallation.h"
#include "support/Waiting.h"

#include <windows.h>

#include <string>
#include <string_view>

namespace Testing
{
// The program that opens logs: it notes what it is given.
class LogViewer
{
public:
    LogViewer()
    {
        // A command processor is there on every Windows.
        WriteValue(c_extension, L"", REG_SZ, TextValue(REG_SZ, L"Velmora.Tests.Log").data);
        WriteValue(c_command, L"", REG_SZ,
                   TextValue(REG_SZ, LR"(C:\windows\system32\cmd.exe /c echo "%1">")" + m_note + L"\"").data);
    }

    ~LogViewer()
    {
        DeleteFileW(m_note.c_str());
        RemoveValue(c_extension, L"");
        RemoveValue(c_command, L"");
    }
    LogViewer(const LogViewer&) = delete;
    LogViewer& operator=(const LogViewer&) = delete;

    // What it was given, in quotes; nothing when it was not started in time.
    std::string Opened() const
    {
        std::string text;
        const bool isNoted = BecomesTrue([&] { return (text = ReadText(m_note)).ends_with('\n'); });
        return isNoted ? text.substr(0, text.find_first_of("\r\n")) : std::string{};
    }

private:
    static constexpr std::wstring_view c_extension = LR"(HKLM\SOFTWARE\Classes\.log)";
    static constexpr std::wstring_view c_command = LR"(HKLM\SOFTWARE\Classes\Velmora.Tests.Log\shell\open\command)";

    // Where the state of the machine is not looked at: it is written whenever the viewer gets to it.
    std::wstring m_note = LR"(C:\windows\Temp\Velmora.Tests.opened.txt)";
};
} // namespace Testing
