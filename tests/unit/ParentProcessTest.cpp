#include "Uninstaller/ParentProcess.h"

#include "support/unit/FakeFolders.h"
#include "support/unit/OutOfMemory.h"
#include "support/unit/ProcessesTest.h"
#include "support/unit/TestFolder.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace
{

using namespace Uninstaller;
using namespace Testing;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr DWORD c_starter = 70;

// The copy in the temporary folder, and the process in the installation folder that started it.
class ParentProcessTest : public ProcessesTest
{
protected:
    std::optional<ParentProcess> Wait()
    {
        processes.Add(starter);
        processes.Add({.id = 80, .name = L"other.exe", .parent = 90});
        processes.Add(own);
        return WaitForParentProcess(ownPath, root / L"Velmora\\");
    }

    void ExpectNobodyIsWaitedFor()
    {
        EXPECT_FALSE(Wait());
        EXPECT_THAT(journal.CallsOf({"WaitForSingleObject"}), IsEmpty());
    }

    TestFolder root;
    FakeFolders folders{root};
    std::wstring ownPath = folders.Temp() + L"Velmora\\Uninstaller\\Velmora.Uninstaller.exe";
    // The two parts of a time are compared as one.
    FakeProcess own{.id = c_self, .parent = c_starter, .created = 0x1'0000'0000};
    FakeProcess starter{
        .id = c_starter, .image = root.AddFile(L"Velmora\\current\\Velmora.Uninstaller.exe"), .created = 0xFFFF'FFFF};
};

TEST_F(ParentProcessTest, Is_waited_for_and_nothing_when_it_has_ended)
{
    starter.endsWhenWaitedFor = true;

    EXPECT_FALSE(Wait());

    const Calls examined{"OpenProcess(0x101000, 70)", "GetProcessTimes(70)", "GetProcessTimes(this process)",
                         "QueryFullProcessImageNameW(70, 0)"};
    EXPECT_EQ(journal.All(), Walk(3) + examined + "WaitForSingleObject(70, 5000)" + "CloseHandle(70)");
}

TEST_F(ParentProcessTest, Is_told_and_held_when_it_still_runs)
{
    const auto found = Wait();

    ASSERT_TRUE(found);
    EXPECT_EQ(found->id, c_starter);
    EXPECT_THAT(handles.AllOpen(), ElementsAre(handles.NameOf(found->handle.get())));
    EXPECT_TRUE(processes.Find(c_starter));
}

TEST_F(ParentProcessTest, May_be_written_in_other_letters_and_as_old_as_this_one_as_far_as_the_clock_tells)
{
    CharUpperW(ownPath.data());
    starter.created = own.created;

    EXPECT_TRUE(Wait());
}

TEST_F(ParentProcessTest, Is_nothing_for_a_program_that_is_no_copy)
{
    for (const std::wstring& path :
         {root / L"Velmora\\Velmora.Uninstaller.exe", folders.Temp() + L"Velmora.Uninstaller.exe", ownPath + L".exe"})
    {
        EXPECT_FALSE(WaitForParentProcess(path, root / L"Velmora\\"));
    }
    EXPECT_THAT(journal.All(), IsEmpty());
}

TEST_F(ParentProcessTest, Is_no_process_that_got_its_id_later)
{
    starter.created = own.created + 1;

    ExpectNobodyIsWaitedFor();
}

TEST_F(ParentProcessTest, Is_no_program_from_elsewhere)
{
    starter.image = root.AddFile(L"Velmora2\\explorer.exe");

    ExpectNobodyIsWaitedFor();
}

TEST_F(ParentProcessTest, Is_nothing_when_it_has_ended_before)
{
    own.parent = c_starter + 1;

    ExpectNobodyIsWaitedFor();
}

TEST_F(ParentProcessTest, Is_nothing_when_it_cannot_be_examined)
{
    for (const char* const call : {"CreateToolhelp32Snapshot", "OpenProcess", "GetProcessTimes(70)",
                                   "GetProcessTimes(this process)", "QueryFullProcessImageNameW"})
    {
        SCOPED_TRACE(call);
        journal.Fail(call, ERROR_ACCESS_DENIED, 1);

        ExpectNobodyIsWaitedFor();
    }
}

TEST_F(ParentProcessTest, Is_looked_for_without_a_pause_where_the_temporary_folder_cannot_be_made)
{
    const Fake<&CreateDirectoryW> refuse = Fails(ERROR_ACCESS_DENIED);

    EXPECT_TRUE(Wait());
    EXPECT_THAT(clock.Sleeps(), IsEmpty());
}

TEST_F(ParentProcessTest, Is_nothing_when_memory_runs_out)
{
    const std::wstring folder = root / L"Velmora\\";
    std::optional<ParentProcess> found;
    processes.Add(starter);
    processes.Add(own);
    {
        const OutOfMemory outOfMemory;
        found = WaitForParentProcess(ownPath, folder);
    }
    EXPECT_FALSE(found);
}

} // namespace
