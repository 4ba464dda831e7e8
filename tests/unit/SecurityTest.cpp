#include "Installer/Security.h"

#include "support/common/ImportTableFake.h"
#include "support/unit/FakePrivileges.h"
#include "support/unit/ProcessesTest.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace
{

using namespace Testing;
using Installer::GetActiveConsoleExplorerToken;
using testing::ElementsAre;
using testing::IsEmpty;

// Whether the token of the calling thread is elevated; nothing and the last error when it cannot be asked.
void ExpectElevation(std::optional<DWORD> elevation)
{
    const Fake<&GetTokenInformation> information = [&](HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID data,
                                                       DWORD size, PDWORD needed) -> BOOL {
        EXPECT_EQ(token, GetCurrentThreadEffectiveToken());
        EXPECT_EQ(kind, TokenElevation);
        EXPECT_EQ(size, 4U);
        *static_cast<DWORD*>(data) = elevation.value_or(0);
        *needed = size;
        SetLastError(ERROR_INVALID_HANDLE);
        return elevation.has_value();
    };
    if (elevation)
    {
        EXPECT_EQ(Installer::IsTokenElevated(), elevation != 0U);
    }
    else
    {
        EXPECT_THAT([] { Installer::IsTokenElevated(); }, ThrowsResult(HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE)));
    }
}

TEST(IsTokenElevatedTest, Asks_the_token_and_throws_when_it_cannot_be_asked)
{
    ExpectElevation(0);
    ExpectElevation(1);
    ExpectElevation(std::nullopt);
}

// What WTSGetActiveConsoleSessionId says when no session is on the console.
constexpr DWORD c_nobody = 0xFFFFFFFF;

// Tokens are taken from the Explorers among the processes.
class GetActiveConsoleExplorerTokenTest : public ProcessesTest
{
protected:
    using Privilege = FakePrivileges::State;

    void AddExplorer(DWORD id) { processes.Add({.id = id, .name = L"explorer.exe"}); }
    void AddExplorerForDebuggers(DWORD id)
    {
        processes.Add({.id = id, .name = L"explorer.exe", .isForDebuggers = true});
    }

    // Expects the token of that process, which closes with nothing else open.
    void ExpectToken(DWORD owner)
    {
        const wil::unique_handle token = GetActiveConsoleExplorerToken();
        EXPECT_THAT(handles.AllOpen(), ElementsAre("token of " + std::to_string(owner)));
        EXPECT_THAT(failures.Entries(), IsEmpty());
    }

    static void ExpectNoExplorer()
    {
        EXPECT_THAT([] { GetActiveConsoleExplorerToken(); },
                    testing::ThrowsMessage<std::runtime_error>(
                        "Unable to find a explorer.exe process running under the active console session!"));
    }

    // Expects a failure that is recorded as one of Security's own.
    void ExpectFailure(HRESULT result)
    {
        EXPECT_THAT([] { GetActiveConsoleExplorerToken(); }, ThrowsResult(result));
        m_recorded.emplace_back("Security", result);
        EXPECT_EQ(failures.Entries(), m_recorded);
        EXPECT_THAT(handles.AllOpen(), IsEmpty());
    }

    // The calls that find process 40 to be the one and only Explorer.
    const Calls c_found{"WTSGetActiveConsoleSessionId()", "CreateToolhelp32Snapshot(0x2, 0)",
                        "Process32FirstW(snapshot)",      "Process32NextW(snapshot)",
                        "ProcessIdToSessionId(40)",       "Process32NextW(snapshot)",
                        "CloseHandle(snapshot)"};
    const std::string c_open = "OpenProcess(0x400, 40)";
    const Calls c_enable{R"(LookupPrivilegeValueW("SeDebugPrivilege"))", "OpenProcessToken(this process, 0x28)",
                         "AdjustTokenPrivileges(token of this process, 0x2)"};
    const std::string c_closeOwn = "CloseHandle(token of this process)";
    const Calls c_openToken{"OpenProcessToken(40, 0xe)", "CloseHandle(40)"};

    FakePrivileges privileges{journal, handles, processes};

private:
    std::vector<FailureLog::Entry> m_recorded;
};

TEST_F(GetActiveConsoleExplorerTokenTest, Opens_the_token_of_the_explorer_of_the_session_on_the_console)
{
    AddExplorer(40);

    ExpectToken(40);
    EXPECT_EQ(journal.All(), c_found + c_open + c_openToken + "CloseHandle(token of 40)");
}

TEST_F(GetActiveConsoleExplorerTokenTest, Takes_the_last_explorer_of_the_session_on_the_console_or_of_the_only_one)
{
    struct Choice
    {
        DWORD consoleSession;
        std::vector<std::pair<DWORD, DWORD>> explorers; // ids and sessions
        DWORD chosen;                                   // 0: none
    };
    for (const auto& [consoleSession, explorers, chosen] :
         {Choice{1, {}, 0}, Choice{1, {{40, 2}}, 0}, Choice{2, {{40, 1}, {44, 2}, {48, 3}}, 44},
          Choice{1, {{48, 1}, {44, 2}, {40, 1}}, 40}, Choice{0, {{0, 0}}, 0}, Choice{c_nobody, {}, 0},
          Choice{c_nobody, {{40, 3}}, 40}, Choice{c_nobody, {{40, 3}, {44, 3}}, 44},
          Choice{c_nobody, {{40, 1}, {44, 2}}, 0}, Choice{c_nobody, {{0, 0}}, 0}})
    {
        SCOPED_TRACE(testing::PrintToString(std::tuple(consoleSession, explorers)));
        FakeProcesses machine{journal, handles};
        machine.consoleSession = consoleSession;
        machine.Add({.id = 4, .name = L"System", .session = 0});
        for (const auto& [id, session] : explorers)
        {
            machine.Add({.id = id, .name = L"explorer.exe", .session = session});
        }
        machine.Add({.id = 36, .name = L"notepad.exe"});

        chosen == 0 ? ExpectNoExplorer() : ExpectToken(chosen);
    }
}

TEST_F(GetActiveConsoleExplorerTokenTest, Takes_nothing_for_an_explorer_that_is_not_called_so_to_the_letter)
{
    for (const wchar_t* const name : {L"Explorer.exe", L"explorer.EXE", L"EXPLORER.EXE", L"explorer.exe ",
                                      L"explorer.ex", L"xexplorer.exe", L"explorer.exe.exe", L""})
    {
        processes.Add({.id = 40, .name = name});
    }

    ExpectNoExplorer();
}

TEST_F(GetActiveConsoleExplorerTokenTest, Counts_an_explorer_whose_session_is_not_known_as_one_of_session_0)
{
    AddExplorer(40);
    AddExplorer(44);
    journal.Fail("ProcessIdToSessionId(44)", ERROR_ACCESS_DENIED);
    ExpectToken(40);

    processes.consoleSession = 0;
    ExpectToken(44);

    processes.consoleSession = c_nobody;
    ExpectNoExplorer();
}

TEST_F(GetActiveConsoleExplorerTokenTest, Throws_the_last_error_of_the_call_that_fails)
{
    AddExplorer(40);
    for (const auto& [function, error, calls] : std::vector<std::tuple<std::string, long, Calls>>{
             {"CreateToolhelp32Snapshot", ERROR_PARTIAL_COPY, {c_found[0], c_found[1]}},
             {"OpenProcess", ERROR_NOT_ENOUGH_MEMORY, c_found + c_open},
             {"OpenProcessToken", ERROR_NO_TOKEN, c_found + c_open + c_openToken}})
    {
        journal.Fail(function, error, 1);

        ExpectFailure(HRESULT_FROM_WIN32(static_cast<DWORD>(error)));
        EXPECT_EQ(journal.Take(), calls);
    }
}

TEST_F(GetActiveConsoleExplorerTokenTest, Opens_an_explorer_that_denies_access_with_the_privilege_to_debug)
{
    AddExplorerForDebuggers(40);

    ExpectToken(40);

    EXPECT_EQ(journal.All(), c_found + c_open + c_enable + c_open +
                                 "AdjustTokenPrivileges(token of this process, 0x0)" + c_closeOwn + c_openToken +
                                 "CloseHandle(token of 40)");
    EXPECT_EQ(privileges.debug, Privilege::Disabled);
}

TEST_F(GetActiveConsoleExplorerTokenTest, Throws_the_denial_when_nothing_helps_against_it)
{
    AddExplorer(40);
    journal.Fail("OpenProcess", ERROR_ACCESS_DENIED);
    for (const Privilege before : {Privilege::NotHeld, Privilege::Disabled, Privilege::Enabled})
    {
        privileges.debug = before;

        ExpectFailure(E_ACCESSDENIED);
        EXPECT_EQ(privileges.debug, before);
    }
}

TEST_F(GetActiveConsoleExplorerTokenTest, Does_not_ask_again_without_the_privilege)
{
    privileges.debug = Privilege::NotHeld;
    AddExplorerForDebuggers(40);

    ExpectFailure(E_ACCESSDENIED);

    EXPECT_EQ(journal.All(), c_found + c_open + c_enable + c_closeOwn);
}

TEST_F(GetActiveConsoleExplorerTokenTest, Leaves_a_privilege_enabled_that_was_so_before)
{
    privileges.debug = Privilege::Enabled;
    AddExplorer(40);
    journal.Fail(c_open, ERROR_ACCESS_DENIED, 1);

    ExpectToken(40);

    EXPECT_EQ(journal.All(),
              c_found + c_open + c_enable + c_open + c_closeOwn + c_openToken + "CloseHandle(token of 40)");
    EXPECT_EQ(privileges.debug, Privilege::Enabled);
}

TEST_F(GetActiveConsoleExplorerTokenTest, Throws_the_denial_whatever_fails_on_the_way_to_the_privilege)
{
    AddExplorerForDebuggers(40);
    for (const std::string& call : c_enable)
    {
        journal.Fail(call, ERROR_NOT_ENOUGH_MEMORY, 1);

        ExpectFailure(E_ACCESSDENIED);
    }
    EXPECT_EQ(journal.CallsOf({c_open}).size(), 3U);
}

TEST_F(GetActiveConsoleExplorerTokenTest, Throws_the_denial_when_the_explorer_has_gone_meanwhile)
{
    AddExplorerForDebuggers(40);
    journal.onCall = [this](const std::string& call) {
        if (call == c_enable.back())
        {
            processes.Remove(40);
        }
    };

    ExpectFailure(E_ACCESSDENIED);

    EXPECT_EQ(journal.CallsOf({c_open}).size(), 2U);
    EXPECT_EQ(privileges.debug, Privilege::Disabled);
}

} // namespace
