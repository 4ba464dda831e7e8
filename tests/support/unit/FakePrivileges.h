#pragma once

#include "support/common/ImportTableFake.h"
#include "support/unit/FakeProcesses.h"
#include "support/unit/Handles.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string_view>

namespace Testing
{

// The privileges in this process's own token, of which one matters here: the one to debug other programs. Journal:
//     LookupPrivilegeValueW("name"), AdjustTokenPrivileges(token, attributes)
class FakePrivileges
{
public:
    enum class State
    {
        NotHeld,
        Disabled, // as an elevated administrator has it
        Enabled,
    };

    FakePrivileges(Journal& journal, Handles& handles, FakeProcesses& processes)
        : m_journal(journal),
          m_handles(handles)
    {
        processes.isDebugging = [this] { return debug == State::Enabled; };
    }
    FakePrivileges(const FakePrivileges&) = delete;
    FakePrivileges& operator=(const FakePrivileges&) = delete;

    State debug = State::Disabled;

private:
    static constexpr DWORD c_debug = 20; // the privilege's number on every Windows

    // What is wrong with the arguments, or ERROR_SUCCESS.
    DWORD Check(HANDLE handle, DWORD size, const TOKEN_PRIVILEGES* previous, const DWORD* needed)
    {
        const auto* const token = m_handles.Find<FakeToken>(handle);
        if (token == nullptr)
        {
            return ERROR_INVALID_HANDLE;
        }
        // What was before can be read by those alone who may query.
        const DWORD rights = TOKEN_ADJUST_PRIVILEGES | (previous != nullptr ? TOKEN_QUERY : 0U);
        if ((token->access & rights) != rights)
        {
            return ERROR_ACCESS_DENIED;
        }
        if (previous == nullptr)
        {
            return ERROR_SUCCESS;
        }
        return needed == nullptr                 ? ERROR_NOACCESS
               : size < sizeof(TOKEN_PRIVILEGES) ? ERROR_INSUFFICIENT_BUFFER
                                                 : ERROR_SUCCESS;
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

    Journal& m_journal;
    Handles& m_handles;
    Fake<&LookupPrivilegeValueW> m_lookUp = [this](LPCWSTR system, LPCWSTR name, PLUID privilege) -> BOOL {
        EXPECT_EQ(system, nullptr);
        DWORD error = m_journal.Add("LookupPrivilegeValueW", name);
        if (std::wstring_view(name) != L"SeDebugPrivilege")
        {
            error = ERROR_NO_SUCH_PRIVILEGE;
        }
        *privilege = {.LowPart = c_debug, .HighPart = 0};
        return Succeeds(error);
    };
    Fake<&AdjustTokenPrivileges> m_adjust = [this](HANDLE token, BOOL disablesAll, PTOKEN_PRIVILEGES wanted, DWORD size,
                                                   PTOKEN_PRIVILEGES previous, PDWORD needed) -> BOOL {
        EXPECT_EQ(disablesAll, FALSE);
        DWORD error =
            m_journal.Add("AdjustTokenPrivileges", m_handles.NameOf(token), Mask(wanted->Privileges[0].Attributes));
        if (error == ERROR_SUCCESS)
        {
            error = Check(token, size, previous, needed);
        }
        if (!Succeeds(error))
        {
            return FALSE;
        }
        Change(*wanted, previous);
        return TRUE;
    };
};

} // namespace Testing
