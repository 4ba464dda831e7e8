#pragma once

#include "support/common/ImportTableFake.h"
#include "support/unit/FakeProcesses.h"
#include "support/unit/Handles.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <string_view>

namespace Testing
{

// The privileges in this process's own token. Journal:
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
    State backup = State::Disabled;
    State restore = State::Disabled;

    std::size_t CountEnabled() const
    {
        return static_cast<std::size_t>(std::ranges::count(std::array{debug, backup, restore}, State::Enabled));
    }

private:
    struct Privilege
    {
        std::wstring_view name;
        DWORD number; // on every Windows
        State FakePrivileges::* state;
    };
    static inline const Privilege c_privileges[] = {{L"SeDebugPrivilege", 20, &FakePrivileges::debug},
                                                    {L"SeBackupPrivilege", 17, &FakePrivileges::backup},
                                                    {L"SeRestorePrivilege", 18, &FakePrivileges::restore}};

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
        const DWORD number = wanted.Privileges[0].Luid.LowPart;
        const auto* const privilege = std::ranges::find(c_privileges, number, &Privilege::number);
        ASSERT_TRUE(wanted.PrivilegeCount == 1 && privilege != std::end(c_privileges));
        State& state = this->*privilege->state;
        const bool enables = (wanted.Privileges[0].Attributes & SE_PRIVILEGE_ENABLED) != 0;
        const bool isEnabled = state == State::Enabled;
        const bool changes = state != State::NotHeld && enables != isEnabled;
        if (previous != nullptr)
        {
            // Only what changes is told.
            previous->PrivilegeCount = changes ? 1 : 0;
            previous->Privileges[0] = {.Luid = {.LowPart = changes ? number : 0, .HighPart = 0},
                                       .Attributes = changes && isEnabled ? SE_PRIVILEGE_ENABLED : 0U};
        }
        if (changes)
        {
            state = enables ? State::Enabled : State::Disabled;
        }
        SetLastError(state == State::NotHeld ? ERROR_NOT_ALL_ASSIGNED : ERROR_SUCCESS);
    }

    Journal& m_journal;
    Handles& m_handles;
    Fake<&LookupPrivilegeValueW> m_lookUp = [this](LPCWSTR system, LPCWSTR name, PLUID privilege) -> BOOL {
        EXPECT_EQ(system, nullptr);
        DWORD error = m_journal.Add("LookupPrivilegeValueW", name);
        const auto* const known = std::ranges::find(c_privileges, std::wstring_view(name), &Privilege::name);
        if (known == std::end(c_privileges))
        {
            error = ERROR_NO_SUCH_PRIVILEGE;
        }
        *privilege = {.LowPart = error == ERROR_SUCCESS ? known->number : 0, .HighPart = 0};
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
