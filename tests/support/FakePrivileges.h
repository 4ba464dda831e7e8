#pragma once

#include "support/FakeProcesses.h"
#include "support/ImportTableFake.h"
#include "support/Text.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <string_view>

namespace Testing
{

// The privileges in this process's own token, of which one matters here: the one to debug other programs. Calls for it
// come into the list of the processes: "privilege <name>", "own token <access>", "enable", "disable".
class FakePrivileges
{
public:
    enum class State
    {
        NotHeld,
        Disabled, // as an elevated administrator has it
        Enabled,
    };

    explicit FakePrivileges(FakeProcesses& processes) : m_processes(processes)
    {
        processes.isDebugging = [this] { return debug == State::Enabled; };
    }
    FakePrivileges(const FakePrivileges&) = delete;
    FakePrivileges& operator=(const FakePrivileges&) = delete;

    State debug = State::Disabled;

    // Why something is refused, if so.
    DWORD lookUpError = ERROR_SUCCESS;
    DWORD openError = ERROR_SUCCESS;
    DWORD adjustError = ERROR_SUCCESS;

private:
    static constexpr DWORD c_debug = 20; // the privilege's number on every Windows

    static BOOL Fail(DWORD error)
    {
        SetLastError(error);
        return FALSE;
    }

    BOOL LookUp(LPCWSTR system, std::wstring_view name, LUID& privilege)
    {
        EXPECT_EQ(system, nullptr);
        m_processes.Note("privilege " + Narrow(name));
        if (lookUpError != ERROR_SUCCESS || name != L"SeDebugPrivilege")
        {
            return Fail(lookUpError != ERROR_SUCCESS ? lookUpError : ERROR_NO_SUCH_PRIVILEGE);
        }
        privilege = {.LowPart = c_debug, .HighPart = 0};
        return TRUE;
    }

    BOOL OpenOwn(DWORD access, HANDLE& token)
    {
        m_processes.Note("own token " + Hex(access));
        if (openError != ERROR_SUCCESS)
        {
            return Fail(openError);
        }
        token = m_processes.MakeHandle("own token");
        m_tokens[token] = access;
        return TRUE;
    }

    BOOL Adjust(HANDLE token, const TOKEN_PRIVILEGES& wanted, DWORD size, TOKEN_PRIVILEGES* previous, DWORD* needed)
    {
        m_processes.Note(wanted.Privileges[0].Attributes == SE_PRIVILEGE_ENABLED ? "enable" : "disable");
        const auto access = m_tokens.find(token);
        if (access == m_tokens.end() || !m_processes.IsOpen(token))
        {
            return Fail(ERROR_INVALID_HANDLE);
        }
        // What was before can be read by those alone who may query.
        const DWORD rights = TOKEN_ADJUST_PRIVILEGES | (previous != nullptr ? TOKEN_QUERY : 0U);
        if ((access->second & rights) != rights)
        {
            return Fail(ERROR_ACCESS_DENIED);
        }
        if (previous != nullptr)
        {
            if (needed == nullptr)
            {
                return Fail(ERROR_NOACCESS);
            }
            *needed = sizeof(TOKEN_PRIVILEGES);
            if (size < sizeof(TOKEN_PRIVILEGES))
            {
                return Fail(ERROR_INSUFFICIENT_BUFFER);
            }
        }
        if (adjustError != ERROR_SUCCESS)
        {
            return Fail(adjustError);
        }
        Change(wanted, previous);
        return TRUE;
    }

    // Succeeds where the privilege is not held, too, and says so in the last error.
    void Change(const TOKEN_PRIVILEGES& wanted, TOKEN_PRIVILEGES* previous)
    {
        EXPECT_EQ(wanted.PrivilegeCount, 1U);
        EXPECT_EQ(wanted.Privileges[0].Luid.LowPart, c_debug);
        const bool enables = (wanted.Privileges[0].Attributes & SE_PRIVILEGE_ENABLED) != 0;
        const bool isEnabled = debug == State::Enabled;
        const bool changes = debug != State::NotHeld && enables != isEnabled;
        if (previous != nullptr)
        {
            // Only what changes is told.
            previous->PrivilegeCount = changes ? 1 : 0;
            previous->Privileges[0] = {.Luid = {.LowPart = changes ? c_debug : 0, .HighPart = 0},
                                       .Attributes = changes && isEnabled ? SE_PRIVILEGE_ENABLED : 0U};
        }
        if (changes)
        {
            debug = enables ? State::Enabled : State::Disabled;
        }
        SetLastError(debug == State::NotHeld ? ERROR_NOT_ALL_ASSIGNED : ERROR_SUCCESS);
    }

    FakeProcesses& m_processes;
    std::map<HANDLE, DWORD> m_tokens;
    Fake<&LookupPrivilegeValueW> m_lookUp = [this](LPCWSTR system, LPCWSTR name, PLUID privilege) {
        return LookUp(system, name, *privilege);
    };
    Fake<&OpenProcessToken> m_openToken = [this](HANDLE process, DWORD access, HANDLE* token) -> BOOL {
        return process == GetCurrentProcess() ? OpenOwn(access, *token) : m_openToken.Hidden(process, access, token);
    };
    Fake<&AdjustTokenPrivileges> m_adjust = [this](HANDLE token, BOOL disablesAll, PTOKEN_PRIVILEGES wanted, DWORD size,
                                                   PTOKEN_PRIVILEGES previous, PDWORD needed) {
        EXPECT_EQ(disablesAll, FALSE);
        return Adjust(token, *wanted, size, previous, needed);
    };
};

} // namespace Testing
