#pragma once

#include "support/ImportTableFake.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string_view>
#include <utility>

namespace Testing
{

// The command processor that the program starts to have a key pressed, and a user who presses one. Other programs are
// started as they were before.
class FakePause
{
public:
    // Its handles are made by the one, and the other is told when the key is waited for.
    FakePause(std::function<HANDLE()> makeHandle, std::function<void()> onWait)
        : m_makeHandle(std::move(makeHandle)),
          m_onWait(std::move(onWait))
    {}
    FakePause(const FakePause&) = delete;
    FakePause& operator=(const FakePause&) = delete;

private:
    std::function<HANDLE()> m_makeHandle;
    std::function<void()> m_onWait;
    std::set<HANDLE> m_processes;
    Fake<&CreateProcessW> m_start = [this](LPCWSTR program, LPWSTR commandLine, LPSECURITY_ATTRIBUTES process,
                                           LPSECURITY_ATTRIBUTES thread, BOOL inherits, DWORD flags, LPVOID environment,
                                           LPCWSTR folder, LPSTARTUPINFOW startup,
                                           LPPROCESS_INFORMATION started) -> BOOL {
        if (commandLine == nullptr || !std::wstring_view(commandLine).ends_with(L" PAUSE"))
        {
            return m_start.Hidden(program, commandLine, process, thread, inherits, flags, environment, folder, startup,
                                  started);
        }
        EXPECT_EQ(startup->cb, sizeof(*startup));
        commandLine[0] = L'\0'; // Windows may change the text
        *started = {m_makeHandle(), m_makeHandle(), 8000, 8004};
        m_processes.insert(started->hProcess);
        return TRUE;
    };
    Fake<&WaitForSingleObject> m_wait = [this](HANDLE handle, DWORD limit) -> DWORD {
        if (!m_processes.contains(handle))
        {
            return m_wait.Hidden(handle, limit);
        }
        EXPECT_EQ(limit, INFINITE);
        m_onWait();
        return WAIT_OBJECT_0;
    };
};

} // namespace Testing
