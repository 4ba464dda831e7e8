#pragma once

#include "support/common/ImportTableFake.h"
#include "support/unit/Handles.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string_view>

namespace Testing
{

// The command processor that the program starts to have a key pressed, and a user who presses one. Other programs are
// started as they were before. Journal:
//     CreateProcessW("program", "command line"), WaitForSingleObject(command processor, milliseconds)
class FakePause
{
public:
    FakePause(Journal& journal, Handles& handles) : m_journal(journal), m_handles(handles) {}
    FakePause(const FakePause&) = delete;
    FakePause& operator=(const FakePause&) = delete;

private:
    struct CommandProcessor
    {
    };

    Journal& m_journal;
    Handles& m_handles;
    Fake<&CreateProcessW> m_start = [this](LPCWSTR program, LPWSTR commandLine, LPSECURITY_ATTRIBUTES process,
                                           LPSECURITY_ATTRIBUTES thread, BOOL inherits, DWORD flags, LPVOID environment,
                                           LPCWSTR folder, LPSTARTUPINFOW startup,
                                           LPPROCESS_INFORMATION started) -> BOOL {
        if (commandLine == nullptr || !std::wstring_view(commandLine).ends_with(L" PAUSE"))
        {
            return m_start.Hidden(program, commandLine, process, thread, inherits, flags, environment, folder, startup,
                                  started);
        }
        EXPECT_TRUE(inherits && flags == 0 && environment == nullptr && folder == nullptr && startup->dwFlags == 0);
        const bool succeeds = Succeeds(m_journal.Add("CreateProcessW", program, commandLine));
        commandLine[0] = L'\0'; // Windows may change the text
        if (!succeeds)
        {
            return FALSE;
        }
        *started = {m_handles.Make("command processor", CommandProcessor{}), m_handles.Make("its thread"), 8000, 8004};
        return TRUE;
    };
    Fake<&WaitForSingleObject> m_wait = [this](HANDLE handle, DWORD limit) -> DWORD {
        if (m_handles.Find<CommandProcessor>(handle) == nullptr)
        {
            return m_wait.Hidden(handle, limit);
        }
        EXPECT_EQ(limit, INFINITE);
        m_journal.Add("WaitForSingleObject", m_handles.NameOf(handle), limit);
        return WAIT_OBJECT_0;
    };
};

} // namespace Testing
