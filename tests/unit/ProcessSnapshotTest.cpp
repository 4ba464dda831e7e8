#include "Installer/ProcessSnapshot.h"

#include "support/unit/ProcessesTest.h"

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

class ForEachProcessTest : public ProcessesTest
{
protected:
    // What a walk through a snapshot shows, as ids and names.
    static std::vector<std::pair<DWORD, std::wstring>> Show(const wil::unique_tool_help_snapshot& snapshot)
    {
        std::vector<std::pair<DWORD, std::wstring>> shown;
        Installer::ForEachProcess(snapshot, [&](const PROCESSENTRY32W& process) {
            shown.emplace_back(process.th32ProcessID, process.szExeFile);
        });
        return shown;
    }
};

TEST(TakeProcessSnapshotTest, Gives_an_empty_owner_and_leaves_the_last_error_when_there_is_none)
{
    for (const HANDLE result : {HANDLE{nullptr}, INVALID_HANDLE_VALUE})
    {
        const Fake<&CreateToolhelp32Snapshot> failing = [=](DWORD, DWORD) {
            SetLastError(ERROR_BAD_LENGTH);
            return result;
        };

        EXPECT_FALSE(Installer::TakeProcessSnapshot());
        EXPECT_EQ(GetLastError(), DWORD{ERROR_BAD_LENGTH});
    }
}

TEST_F(ForEachProcessTest, Shows_every_process_but_the_first_in_the_order_of_the_snapshot)
{
    const std::wstring longest(MAX_PATH - 1, L'x');
    processes.PutFirst({.id = 40, .name = L"explorer.exe"});
    processes.Add({.id = 8, .name = L"later.exe"});
    processes.Add({.id = 4, .name = L"System"});
    processes.Add({.id = 12, .name = longest});

    {
        const wil::unique_tool_help_snapshot snapshot = Installer::TakeProcessSnapshot();
        EXPECT_THAT(Show(snapshot),
                    ElementsAre(std::pair(8, L"later.exe"), std::pair(4, L"System"), std::pair(12, longest)));
        EXPECT_THAT(handles.AllOpen(), ElementsAre("snapshot")); // for its owner
    }
    EXPECT_EQ(journal.All(), Walk(3));
}

TEST_F(ForEachProcessTest, Shows_nothing_when_the_snapshot_cannot_be_read)
{
    processes.Add({.id = 40, .name = L"explorer.exe"});
    journal.Fail("Process32FirstW", ERROR_NO_MORE_FILES);

    EXPECT_THAT(Show(Installer::TakeProcessSnapshot()), IsEmpty());
    EXPECT_THAT(journal.CallsOf({"Process32NextW"}), IsEmpty());
}

TEST_F(ForEachProcessTest, Ends_with_what_the_examination_throws)
{
    processes.Add({.id = 40, .name = L"explorer.exe"});
    processes.Add({.id = 44, .name = L"explorer.exe"});

    EXPECT_THROW(Installer::ForEachProcess(Installer::TakeProcessSnapshot(),
                                           [](const PROCESSENTRY32W&) { throw std::length_error("too many"); }),
                 std::length_error);
    EXPECT_EQ(journal.CallsOf({"Process32NextW"}).size(), 1U);
}

} // namespace
