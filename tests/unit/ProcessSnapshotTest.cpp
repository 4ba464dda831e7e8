#include "Installer/ProcessSnapshot.h"

#include "support/FakeProcesses.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace Testing;
using testing::ElementsAre;
using testing::IsEmpty;

using Processes = std::vector<std::pair<DWORD, std::wstring>>;

// What a walk through a snapshot shows, as ids and names.
Processes Walk(const wil::unique_tool_help_snapshot& snapshot)
{
    Processes processes;
    Installer::ForEachProcess(snapshot, [&](const PROCESSENTRY32W& process) {
        processes.emplace_back(process.th32ProcessID, process.szExeFile);
    });
    return processes;
}

TEST(TakeProcessSnapshot, takes_one_of_all_processes_that_its_owner_closes)
{
    FakeProcesses processes;
    {
        EXPECT_TRUE(Installer::TakeProcessSnapshot());
    }
    EXPECT_THAT(processes.Calls(), ElementsAre("snapshot 2 0", "close snapshot"));
    EXPECT_EQ(processes.OpenHandles(), 0U);
}

TEST(TakeProcessSnapshot, gives_an_empty_owner_and_leaves_the_last_error_when_there_is_none)
{
    for (const HANDLE result : {HANDLE{nullptr}, INVALID_HANDLE_VALUE})
    {
        FakeProcesses processes;
        processes.FailSnapshots(result, ERROR_BAD_LENGTH);
        {
            const wil::unique_tool_help_snapshot snapshot = Installer::TakeProcessSnapshot();
            EXPECT_EQ(GetLastError(), DWORD{ERROR_BAD_LENGTH});
            EXPECT_FALSE(snapshot);
        }
        EXPECT_THAT(processes.Calls(), ElementsAre("snapshot 2 0"));
    }
}

TEST(ForEachProcess, shows_every_process_but_the_first_in_the_order_of_the_snapshot)
{
    FakeProcesses processes;
    processes.Add({.id = 8, .name = L"later.exe"});
    processes.Add({.id = 4, .name = L"System"});
    processes.Add({.id = 12, .name = std::wstring(MAX_PATH - 1, L'x')});

    EXPECT_THAT(Walk(Installer::TakeProcessSnapshot()), ElementsAre(std::pair(8, L"later.exe"), std::pair(4, L"System"),
                                                                    std::pair(12, std::wstring(MAX_PATH - 1, L'x'))));
    EXPECT_THAT(processes.Calls(),
                ElementsAre("snapshot 2 0", "first 568", "next", "next", "next", "next", "close snapshot"));
}

TEST(ForEachProcess, does_not_look_at_what_the_first_process_is)
{
    FakeProcesses processes;
    processes.PutFirst({.id = 40, .name = L"explorer.exe"});

    EXPECT_THAT(Walk(Installer::TakeProcessSnapshot()), IsEmpty());
    EXPECT_THAT(processes.Calls(), ElementsAre("snapshot 2 0", "first 568", "next", "close snapshot"));
}

TEST(ForEachProcess, shows_nothing_when_the_snapshot_cannot_be_read)
{
    FakeProcesses processes;
    processes.Add({.id = 40, .name = L"explorer.exe"});
    processes.FailFirst();

    EXPECT_THAT(Walk(Installer::TakeProcessSnapshot()), IsEmpty());
    EXPECT_THAT(processes.Calls(), ElementsAre("snapshot 2 0", "first 568", "close snapshot"));
}

TEST(ForEachProcess, leaves_the_snapshot_open_for_its_owner)
{
    const FakeProcesses processes;
    const wil::unique_tool_help_snapshot snapshot = Installer::TakeProcessSnapshot();

    EXPECT_THAT(Walk(snapshot), IsEmpty());
    EXPECT_EQ(processes.OpenSnapshots(), 1U);
}

TEST(ForEachProcess, ends_with_what_the_examination_throws)
{
    FakeProcesses processes;
    processes.Add({.id = 40, .name = L"explorer.exe"});
    processes.Add({.id = 44, .name = L"explorer.exe"});

    EXPECT_THROW(Installer::ForEachProcess(Installer::TakeProcessSnapshot(),
                                           [](const PROCESSENTRY32W&) { throw std::length_error("too many"); }),
                 std::length_error);
    EXPECT_THAT(processes.Calls(), ElementsAre("snapshot 2 0", "first 568", "next", "close snapshot"));
}

} // namespace
