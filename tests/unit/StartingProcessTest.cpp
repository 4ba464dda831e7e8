#include "Uninstaller/StartingProcess.h"

#include "support/Calls.h"
#include "support/FakeFolders.h"
#include "support/FakeProcesses.h"
#include "support/OutOfMemory.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace
{

using namespace Uninstaller;
using namespace Testing;
using testing::Contains;
using testing::Not;
using testing::StartsWith;

constexpr DWORD c_self = 4711;
constexpr DWORD c_starter = 70;

// The copy in the temporary folder, and the process in the installation folder that started it.
class StartingProcessTest : public testing::Test
{
protected:
    StartingProcessTest()
    {
        own.id = c_self;
        own.name = L"Velmora.Uninstaller.exe";
        own.parent = c_starter;
        own.created = 0x1'0000'0000; // the parts of a time are compared as one
        starter.id = c_starter;
        starter.name = own.name;
        starter.image = root.AddFile(L"Velmora\\current\\Velmora.Uninstaller.exe");
        starter.created = 0xFFFF'FFFF;
    }
    ~StartingProcessTest() override { EXPECT_EQ(processes.OpenHandles(), 0U); }

    void AddAll()
    {
        processes.Add(starter);
        processes.Add({.id = 80, .name = L"other.exe", .parent = 90});
        processes.Add(own);
    }

    std::optional<StartingProcess> Wait()
    {
        AddAll();
        return WaitForStartingProcess(ownPath, root / L"Velmora\\");
    }

    void ExpectNobodyIsWaitedFor()
    {
        EXPECT_FALSE(Wait());
        EXPECT_THAT(processes.Calls(), Not(Contains(StartsWith("wait"))));
    }

    VirtualClock clock;
    TestFolder root;
    FakeFolders folders{root};
    std::wstring ownPath = folders.Temp() + L"Velmora\\Uninstaller\\Velmora.Uninstaller.exe";
    FakeProcess own;
    FakeProcess starter;
    FakeProcesses processes;
};

TEST_F(StartingProcessTest, is_waited_for_and_nothing_when_it_has_ended)
{
    starter.endsWhenWaitedFor = true;

    EXPECT_FALSE(Wait());

    EXPECT_EQ(processes.NewCalls(),
              (Calls{"snapshot 2 0", "first 568", "next", "next", "next", "next", "close snapshot", "open 101000 70",
                     "times 70", "times self", "image 0 70", "wait 70 5000", "close 70"}));
}

TEST_F(StartingProcessTest, is_told_and_held_when_it_still_runs)
{
    {
        const auto found = Wait();

        ASSERT_TRUE(found);
        EXPECT_EQ(found->id, c_starter);
        EXPECT_EQ(processes.IdOf(found->handle.get()), c_starter);
    }
    EXPECT_EQ(processes.Calls().back(), "close 70");
    EXPECT_TRUE(processes.Find(c_starter));
}

TEST_F(StartingProcessTest, may_be_written_in_other_letters)
{
    CharUpperW(ownPath.data());

    EXPECT_TRUE(Wait());
}

TEST_F(StartingProcessTest, may_be_as_old_as_this_one_as_far_as_the_clock_tells)
{
    starter.created = own.created;

    EXPECT_TRUE(Wait());
}

TEST_F(StartingProcessTest, is_nothing_for_a_program_that_is_no_copy)
{
    for (const std::wstring& path :
         {root / L"Velmora\\Velmora.Uninstaller.exe", folders.Temp() + L"Velmora.Uninstaller.exe", ownPath + L".exe"})
    {
        EXPECT_FALSE(WaitForStartingProcess(path, root / L"Velmora\\"));
    }
    EXPECT_EQ(processes.Calls(), Calls());
}

TEST_F(StartingProcessTest, is_no_process_that_got_its_id_later)
{
    starter.created = own.created + 1;

    ExpectNobodyIsWaitedFor();
}

TEST_F(StartingProcessTest, is_no_program_from_elsewhere)
{
    starter.image = root.AddFile(L"Velmora2\\explorer.exe");

    ExpectNobodyIsWaitedFor();
}

TEST_F(StartingProcessTest, is_nothing_when_it_has_ended_before)
{
    AddAll();
    processes.Remove(c_starter);

    EXPECT_FALSE(WaitForStartingProcess(ownPath, root / L"Velmora\\"));
}

TEST_F(StartingProcessTest, is_nothing_when_it_cannot_be_opened)
{
    starter.openError = ERROR_ACCESS_DENIED;

    ExpectNobodyIsWaitedFor();
}

TEST_F(StartingProcessTest, is_nothing_when_its_age_is_not_told)
{
    starter.timesError = ERROR_ACCESS_DENIED;

    ExpectNobodyIsWaitedFor();
}

TEST_F(StartingProcessTest, is_nothing_when_this_ones_age_is_not_told)
{
    own.timesError = ERROR_ACCESS_DENIED;

    ExpectNobodyIsWaitedFor();
}

TEST_F(StartingProcessTest, is_nothing_when_its_file_is_not_told)
{
    starter.imageError = ERROR_GEN_FAILURE;

    ExpectNobodyIsWaitedFor();
}

TEST_F(StartingProcessTest, is_nothing_when_there_is_no_snapshot)
{
    processes.FailSnapshots(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);

    ExpectNobodyIsWaitedFor();
}

TEST_F(StartingProcessTest, is_looked_for_without_a_pause_where_the_temporary_folder_cannot_be_made)
{
    const Fake<&CreateDirectoryW> refuse = [](LPCWSTR, LPSECURITY_ATTRIBUTES) -> BOOL {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    };
    starter.endsWhenWaitedFor = true;

    EXPECT_FALSE(Wait());

    EXPECT_TRUE(clock.Sleeps().empty());
}

TEST_F(StartingProcessTest, is_nothing_when_memory_runs_out)
{
    AddAll();
    const std::wstring folder = root / L"Velmora\\";
    std::optional<StartingProcess> found;
    {
        const OutOfMemory outOfMemory;
        found = WaitForStartingProcess(ownPath, folder);
    }
    EXPECT_FALSE(found);
}

} // namespace
