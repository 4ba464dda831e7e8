#include "Installer/Security.h"

#include "support/FailureLog.h"
#include "support/FakePrivileges.h"
#include "support/FakeProcesses.h"
#include "support/ImportTableFake.h"
#include "support/Text.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <wil/result.h>

#include <algorithm>
#include <exception>
#include <set>
#include <string>

namespace
{

using namespace Testing;
using testing::ElementsAre;
using testing::IsEmpty;

// The token of the calling thread says whether it is elevated.
class IsTokenElevated : public testing::Test
{
protected:
    DWORD elevation = 0;
    Fake<&GetTokenInformation> getTokenInformation = [this](HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID data,
                                                            DWORD size, PDWORD needed) -> BOOL {
        EXPECT_EQ(token, GetCurrentThreadEffectiveToken());
        EXPECT_EQ(kind, TokenElevation);
        EXPECT_EQ(size, 4U);
        *static_cast<DWORD*>(data) = elevation;
        *needed = size;
        return TRUE;
    };
};

TEST_F(IsTokenElevated, says_no_for_an_ordinary_token)
{
    EXPECT_FALSE(Installer::IsTokenElevated());
}

TEST_F(IsTokenElevated, says_yes_for_an_elevated_token)
{
    elevation = 1;

    EXPECT_TRUE(Installer::IsTokenElevated());
}

TEST_F(IsTokenElevated, throws_when_the_token_cannot_be_asked)
{
    Fake<&GetTokenInformation> failing = [](HANDLE, TOKEN_INFORMATION_CLASS, LPVOID, DWORD, PDWORD) -> BOOL {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    };

    try
    {
        Installer::IsTokenElevated();
        FAIL() << "nothing was thrown";
    }
    catch (const wil::ResultException& exception)
    {
        EXPECT_EQ(exception.GetErrorCode(), HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
    }
}

// What WTSGetActiveConsoleSessionId says when no session is on the console.
constexpr DWORD c_nobody = 0xFFFFFFFF;

// Tokens are taken from the Explorers among the processes.
class GetActiveConsoleExplorerToken : public testing::Test
{
protected:
    void AddExplorer(DWORD id, DWORD session)
    {
        processes.Add({.id = id, .name = L"explorer.exe", .session = session});
    }

    // The id of the process that the token is taken from, and closes the token; or the text of the exception.
    std::string Choose()
    {
        std::string owner;
        try
        {
            const wil::unique_handle result = Installer::GetActiveConsoleExplorerToken();
            EXPECT_EQ(result.get(), token);
            EXPECT_EQ(processes.OpenHandles(), 1U);
            owner = std::to_string(tokenOwner);
        }
        catch (const wil::ResultException&)
        {
            throw;
        }
        catch (const std::exception& exception)
        {
            owner = exception.what();
        }
        EXPECT_EQ(processes.OpenHandles(), 0U);
        return owner;
    }

    // Expects the call to throw this code, recorded as one of Security's own, and to leave nothing open.
    void ExpectFailure(HRESULT result)
    {
        const FailureLog failures;
        try
        {
            Installer::GetActiveConsoleExplorerToken();
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const wil::ResultException& exception)
        {
            EXPECT_EQ(exception.GetErrorCode(), result);
        }
        EXPECT_THAT(failures.Entries(), ElementsAre(FailureLog::Entry("Security", result)));
        EXPECT_EQ(processes.OpenHandles(), 0U);
    }

    const std::string notFound = "Unable to find a explorer.exe process running under the active console session!";

    FakeProcesses processes;
    DWORD consoleSession = 1;
    std::set<DWORD> withoutSession; // the processes whose session cannot be asked for
    DWORD tokenError = ERROR_SUCCESS;
    HANDLE token = nullptr;
    DWORD tokenOwner = 0;

private:
    Fake<&WTSGetActiveConsoleSessionId> m_console = [this] {
        processes.Note("console");
        return consoleSession;
    };
    Fake<&ProcessIdToSessionId> m_session = [this](DWORD id, DWORD* session) -> BOOL {
        processes.Note("session " + std::to_string(id));
        if (withoutSession.contains(id))
        {
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        }
        const auto process = processes.Find(id);
        *session = process ? process->session : 0;
        return TRUE;
    };
    Fake<&OpenProcessToken> m_openToken = [this](HANDLE process, DWORD access, HANDLE* result) -> BOOL {
        tokenOwner = processes.IdOf(process).value_or(0);
        processes.Note("token " + Hex(access) + " " + std::to_string(tokenOwner));
        if (tokenError != ERROR_SUCCESS)
        {
            SetLastError(tokenError);
            return FALSE;
        }
        token = *result = processes.MakeHandle("token");
        return TRUE;
    };

protected:
    FakePrivileges privileges{processes};
    using Privilege = FakePrivileges::State;
};

TEST_F(GetActiveConsoleExplorerToken, opens_the_token_of_the_explorer_of_the_session_on_the_console)
{
    const FailureLog failures;
    processes.Add({.id = 4, .name = L"System", .session = 0});
    AddExplorer(40, 1);
    processes.Add({.id = 44, .name = L"notepad.exe"});

    EXPECT_EQ(Choose(), "40");
    EXPECT_THAT(processes.Calls(),
                ElementsAre("console", "snapshot 2 0", "first 568", "next", "next", "session 40", "next", "next",
                            "close snapshot", "open 400 40", "token e 40", "close 40", "close token"));
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(GetActiveConsoleExplorerToken, leaves_the_explorers_of_other_sessions_alone)
{
    consoleSession = 2;
    AddExplorer(40, 1);
    AddExplorer(44, 2);
    AddExplorer(48, 3);

    EXPECT_EQ(Choose(), "44");
}

TEST_F(GetActiveConsoleExplorerToken, takes_the_last_of_several_explorers_in_the_session)
{
    AddExplorer(48, 1);
    AddExplorer(44, 2);
    AddExplorer(40, 1);

    EXPECT_EQ(Choose(), "40");
}

TEST_F(GetActiveConsoleExplorerToken, does_not_take_an_explorer_of_another_session)
{
    const FailureLog failures;
    AddExplorer(40, 2);

    EXPECT_EQ(Choose(), notFound);
    EXPECT_THAT(processes.Calls(),
                ElementsAre("console", "snapshot 2 0", "first 568", "next", "session 40", "next", "close snapshot"));
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(GetActiveConsoleExplorerToken, takes_the_explorer_of_the_only_session_when_none_is_on_the_console)
{
    consoleSession = c_nobody;
    AddExplorer(40, 3);

    EXPECT_EQ(Choose(), "40");
}

TEST_F(GetActiveConsoleExplorerToken, takes_the_last_explorer_of_the_only_session_when_none_is_on_the_console)
{
    consoleSession = c_nobody;
    AddExplorer(40, 3);
    AddExplorer(44, 3);

    EXPECT_EQ(Choose(), "44");
}

TEST_F(GetActiveConsoleExplorerToken, does_not_choose_between_two_sessions_when_none_is_on_the_console)
{
    consoleSession = c_nobody;
    AddExplorer(40, 1);
    AddExplorer(44, 2);

    EXPECT_EQ(Choose(), notFound);
}

TEST_F(GetActiveConsoleExplorerToken, finds_nothing_where_no_explorer_runs)
{
    processes.Add({.id = 40, .name = L"shell.exe"});
    EXPECT_EQ(Choose(), notFound);

    consoleSession = c_nobody;
    EXPECT_EQ(Choose(), notFound);
}

TEST_F(GetActiveConsoleExplorerToken, takes_nothing_for_an_explorer_that_is_not_called_so_to_the_letter)
{
    for (const wchar_t* const name : {L"Explorer.exe", L"explorer.EXE", L"EXPLORER.EXE", L"explorer.exe ",
                                      L"explorer.ex", L"xexplorer.exe", L"explorer.exe.exe", L""})
    {
        processes.Add({.id = 40, .name = name});
    }
    EXPECT_EQ(Choose(), notFound);
}

TEST_F(GetActiveConsoleExplorerToken, does_not_look_at_the_first_process_of_the_snapshot)
{
    processes.PutFirst({.id = 40, .name = L"explorer.exe"});

    EXPECT_EQ(Choose(), notFound);
}

TEST_F(GetActiveConsoleExplorerToken, finds_nothing_in_a_snapshot_that_cannot_be_read)
{
    AddExplorer(40, 1);
    processes.FailFirst();

    EXPECT_EQ(Choose(), notFound);
    EXPECT_THAT(processes.Calls(), ElementsAre("console", "snapshot 2 0", "first 568", "close snapshot"));
}

TEST_F(GetActiveConsoleExplorerToken, counts_an_explorer_whose_session_is_not_known_as_one_of_session_0)
{
    AddExplorer(40, 1);
    AddExplorer(44, 1);
    withoutSession = {44};
    EXPECT_EQ(Choose(), "40");

    consoleSession = 0;
    EXPECT_EQ(Choose(), "44");

    consoleSession = c_nobody;
    EXPECT_EQ(Choose(), notFound);
}

TEST_F(GetActiveConsoleExplorerToken, takes_no_process_of_id_0)
{
    AddExplorer(0, 0);
    consoleSession = 0;
    EXPECT_EQ(Choose(), notFound);

    consoleSession = c_nobody;
    EXPECT_EQ(Choose(), notFound);
}

TEST_F(GetActiveConsoleExplorerToken, throws_the_last_error_when_there_is_no_snapshot)
{
    AddExplorer(40, 1);
    for (const HANDLE snapshot : {HANDLE{nullptr}, INVALID_HANDLE_VALUE})
    {
        processes.FailSnapshots(snapshot, ERROR_PARTIAL_COPY);
        ExpectFailure(HRESULT_FROM_WIN32(ERROR_PARTIAL_COPY));
    }
    EXPECT_THAT(processes.Calls(), ElementsAre("console", "snapshot 2 0", "console", "snapshot 2 0"));
}

TEST_F(GetActiveConsoleExplorerToken, throws_the_last_error_when_the_explorer_cannot_be_opened)
{
    processes.Add({.id = 40, .name = L"explorer.exe", .openError = ERROR_NOT_ENOUGH_MEMORY});

    ExpectFailure(HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_THAT(processes.Calls(), ElementsAre("console", "snapshot 2 0", "first 568", "next", "session 40", "next",
                                               "close snapshot", "open 400 40"));
}

TEST_F(GetActiveConsoleExplorerToken, opens_an_explorer_that_denies_access_with_the_privilege_to_debug)
{
    const FailureLog failures;
    processes.Add({.id = 40, .name = L"explorer.exe", .isForDebuggers = true});

    EXPECT_EQ(Choose(), "40");

    EXPECT_THAT(processes.Calls(),
                ElementsAre("console", "snapshot 2 0", "first 568", "next", "session 40", "next", "close snapshot",
                            "open 400 40", "privilege SeDebugPrivilege", "own token 28", "enable", "open 400 40",
                            "disable", "close own token", "token e 40", "close 40", "close token"));
    EXPECT_EQ(privileges.debug, Privilege::Disabled);
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(GetActiveConsoleExplorerToken, throws_the_denial_when_nothing_helps_against_it)
{
    for (const Privilege before : {Privilege::NotHeld, Privilege::Disabled, Privilege::Enabled})
    {
        privileges.debug = before;
        processes.Remove(40);
        processes.Add({.id = 40, .name = L"explorer.exe", .openError = ERROR_ACCESS_DENIED});

        ExpectFailure(E_ACCESSDENIED);
        EXPECT_EQ(privileges.debug, before);
    }
}

TEST_F(GetActiveConsoleExplorerToken, does_not_ask_again_without_the_privilege)
{
    privileges.debug = Privilege::NotHeld;
    processes.Add({.id = 40, .name = L"explorer.exe", .isForDebuggers = true});

    ExpectFailure(E_ACCESSDENIED);

    EXPECT_THAT(processes.Calls(),
                ElementsAre("console", "snapshot 2 0", "first 568", "next", "session 40", "next", "close snapshot",
                            "open 400 40", "privilege SeDebugPrivilege", "own token 28", "enable", "close own token"));
}

TEST_F(GetActiveConsoleExplorerToken, leaves_a_privilege_enabled_that_was_so_before)
{
    privileges.debug = Privilege::Enabled;
    unsigned asked = 0;
    processes.Add({.id = 40, .name = L"explorer.exe"});
    Fake<&OpenProcess> deniesOnce = [&](DWORD access, BOOL inherit, DWORD id) -> HANDLE {
        if (++asked == 1)
        {
            SetLastError(ERROR_ACCESS_DENIED);
            return nullptr;
        }
        return deniesOnce.Hidden(access, inherit, id);
    };

    EXPECT_EQ(Choose(), "40");

    EXPECT_EQ(asked, 2U);
    EXPECT_EQ(privileges.debug, Privilege::Enabled);
    EXPECT_EQ(std::ranges::count(processes.Calls(), "disable"), 0);
}

TEST_F(GetActiveConsoleExplorerToken, throws_the_denial_whatever_fails_on_the_way_to_the_privilege)
{
    processes.Add({.id = 40, .name = L"explorer.exe", .isForDebuggers = true});
    for (DWORD FakePrivileges::* const error :
         {&FakePrivileges::lookUpError, &FakePrivileges::openError, &FakePrivileges::adjustError})
    {
        privileges.*error = ERROR_NOT_ENOUGH_MEMORY;
        ExpectFailure(E_ACCESSDENIED);
        privileges.*error = ERROR_SUCCESS;
    }
    EXPECT_EQ(std::ranges::count(processes.Calls(), "open 400 40"), 3);
}

TEST_F(GetActiveConsoleExplorerToken, throws_the_denial_when_the_explorer_has_gone_meanwhile)
{
    unsigned asked = 0;
    AddExplorer(40, 1);
    Fake<&OpenProcess> denies = [&](DWORD, BOOL, DWORD) -> HANDLE {
        SetLastError(++asked == 1 ? ERROR_ACCESS_DENIED : ERROR_INVALID_PARAMETER);
        return nullptr;
    };

    ExpectFailure(E_ACCESSDENIED);

    EXPECT_EQ(asked, 2U);
    EXPECT_EQ(privileges.debug, Privilege::Disabled);
}

TEST_F(GetActiveConsoleExplorerToken, throws_the_last_error_when_the_token_cannot_be_opened)
{
    AddExplorer(40, 1);
    tokenError = ERROR_NO_TOKEN;

    ExpectFailure(HRESULT_FROM_WIN32(ERROR_NO_TOKEN));
    EXPECT_THAT(processes.Calls(), ElementsAre("console", "snapshot 2 0", "first 568", "next", "session 40", "next",
                                               "close snapshot", "open 400 40", "token e 40", "close 40"));
}

} // namespace
