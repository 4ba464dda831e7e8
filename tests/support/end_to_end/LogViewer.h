#pragma once

#include "support/end_to_end/MachineState.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/RunningProduct.h"
#include "support/end_to_end/SampleInstallation.h"
#include "support/end_to_end/Waiting.h"

#include <windows.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <string_view>

namespace Testing
{
// The program that opens logs: it notes what it is given, and as whom.
class LogViewer
{
public:
    LogViewer()
    {
        WriteValue(c_extension, L"", REG_SZ, TextValue(REG_SZ, L"Velmora.Tests.Log").data);
        WriteValue(c_command, L"", REG_SZ,
                   TextValue(REG_SZ, L'"' + m_viewer.Path() + L"\" \"" + m_note + L"\" \"%1\"").data);
    }

    ~LogViewer()
    {
        DeleteFileW(m_note.c_str());
        RemoveValue(c_extension, L"");
        RemoveValue(c_command, L"");
    }
    LogViewer(const LogViewer&) = delete;
    LogViewer& operator=(const LogViewer&) = delete;

    // What it noted; all empty when it was not started in time.
    struct Note
    {
        std::string file;
        std::string user;      // as a security identifier
        std::string elevation; // "elevated" or "not elevated"
    };
    Note Read() const
    {
        std::string text;
        BecomesTrue([&] { return std::ranges::count(text = ReadText(m_note), '\n') == 3; });
        std::istringstream lines(text);
        Note note;
        std::getline(lines, note.file);
        std::getline(lines, note.user);
        std::getline(lines, note.elevation);
        return note;
    }

private:
    static constexpr std::wstring_view c_extension = LR"(HKLM\SOFTWARE\Classes\.log)";
    static constexpr std::wstring_view c_command = LR"(HKLM\SOFTWARE\Classes\Velmora.Tests.Log\shell\open\command)";

    // Where the state of the machine is not looked at: it is written whenever the viewer gets to it.
    std::wstring m_note = LR"(C:\windows\Temp\Velmora.Tests.opened.txt)";
    PlacedProgram m_viewer{L"Velmora.Sample.Viewer.exe", LR"(C:\windows\Temp\Velmora.Tests.Viewer.exe)"};
};
} // namespace Testing
