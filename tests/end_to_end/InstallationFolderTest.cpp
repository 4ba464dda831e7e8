// The installation folder in states in which it cannot simply be removed.
#include "EndToEndTest.h"
#include "support/DirectoryLink.h"
#include "support/Names.h"
#include "support/Owners.h"

#include <windows.h>

#include <algorithm>

namespace Testing
{
namespace
{
// Failures are HRESULTs in the log; this is how the program forms them.
unsigned long ResultOf(DWORD error)
{
    return static_cast<unsigned long>(HRESULT_FROM_WIN32(error));
}

// Makes a link for a test and removes it afterwards, without touching what it leads to.
class TestLink
{
public:
    TestLink(std::wstring link, const std::wstring& target) : m_link(std::move(link))
    {
        EXPECT_TRUE(CreateDirectoryLink(m_link, target)) << "The link " << ToUtf8(m_link) << " could not be made.";
    }
    ~TestLink() { RemoveDirectoryLink(m_link); }
    TestLink(const TestLink&) = delete;
    TestLink& operator=(const TestLink&) = delete;

private:
    std::wstring m_link;
};

class InstallationFolderTest : public EndToEndTest
{
protected:
    // The declared state, with these paths of the installation folder still there, and the folders they lie in.
    MachineState DeclaredStateWith(const std::vector<std::wstring>& kept) const
    {
        MachineState state = DeclaredState();
        for (const std::wstring& path : kept)
        {
            state.CopyWithParents(path, Before());
        }
        return state;
    }

    static std::wstring Reported() { return InstallFolder() + L"\\"; }
};

TEST_F(InstallationFolderTest, A_read_only_file_stays_alone_and_makes_the_run_a_partial_one)
{
    LayDownSample();
    const std::wstring file = InstallFolder() + LR"(\current\locales\text-7.pak)";
    ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY));
    Run();
    ExpectPartialUninstall(ExpectedLog().Fails(Step::InstallFolder, ResultOf(ERROR_ACCESS_DENIED), Reported()),
                           DeclaredStateWith({file}));
    // Ten attempts, a second apart.
    EXPECT_GE(Result().duration, std::chrono::seconds(9));
}

TEST_F(InstallationFolderTest, Once_the_obstacle_is_gone_a_second_run_completes_the_first)
{
    LayDownSample();
    const std::wstring file = InstallFolder() + LR"(\current\Velmora.dll)";
    ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY));
    Run();
    ExpectPartialUninstall(ExpectedLog().Fails(Step::InstallFolder, ResultOf(ERROR_ACCESS_DENIED), Reported()),
                           DeclaredStateWith({file}));
    ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL));
    Run();
    ExpectFullSuccess(ExpectedLog().FindsNoRecord().FindsNoPackage());
}

TEST_F(InstallationFolderTest, A_file_that_is_released_in_time_is_no_failure)
{
    LayDownSample();
    const std::wstring heldPath = InstallFolder() + LR"(\current\Velmora.exe)";
    UniqueHandle held =
        OwnFile(CreateFileW(heldPath.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_NE(held, nullptr);

    // An attempt goes through the whole tree: with nothing but the held file left, the first one has failed.
    RunOptions options;
    options.whileRunning = [&](const std::string&) {
        if (held && MeasureTree(InstallFolder()).files == 1)
        {
            held.reset();
        }
    };
    Run(L"-s", options);
    EXPECT_EQ(held, nullptr) << "The file was not released while the program ran.";
    ExpectFullSuccess();
    EXPECT_GE(Result().duration, std::chrono::seconds(1)) << "There was no second attempt.";
}

TEST_F(InstallationFolderTest, A_file_that_is_never_released_stays_alone)
{
    LayDownSample();
    const std::wstring heldPath = InstallFolder() + LR"(\current\resources\app.bin)";
    const UniqueHandle held =
        OwnFile(CreateFileW(heldPath.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_NE(held, nullptr);
    Run();
    ExpectPartialUninstall(ExpectedLog().Fails(Step::InstallFolder, ResultOf(ERROR_SHARING_VIOLATION), Reported()),
                           DeclaredStateWith({heldPath}));
}

TEST_F(InstallationFolderTest, A_file_in_place_of_the_folder_is_not_lost)
{
    LayDownSample({Group::InstallFolder});
    WriteTestFile(InstallFolder(), 100);
    Run();
    ExpectFullSuccess(ExpectedLog().LeavesOut(Step::InstallFolder), DeclaredStateWith({InstallFolder()}));
}

TEST_F(InstallationFolderTest, A_link_in_place_of_the_folder_stays_with_all_that_it_leads_to)
{
    LayDownSample({Group::InstallFolder});
    const std::wstring target = Expand(LR"(<ProgramFiles>\Brindlewave)");
    const TestLink link(InstallFolder(), target);
    Run();
    ASSERT_NE(Before().Find(InstallFolder()), nullptr);
    ASSERT_EQ(Before().Find(InstallFolder())->kind, StateEntry::Kind::Link);
    ExpectPartialUninstall(
        ExpectedLog().Fails(Step::InstallFolder, ResultOf(ERROR_REPARSE_POINT_ENCOUNTERED), Reported()),
        DeclaredStateWith({InstallFolder()}));
}

TEST_F(InstallationFolderTest, A_link_below_the_folder_is_not_followed)
{
    LayDownSample();
    const std::wstring linkPath = InstallFolder() + LR"(\current\plugins\shared)";
    const TestLink link(linkPath, Expand(LR"(<ProgramFiles>\Brindlewave)"));
    Run();
    ASSERT_NE(Before().Find(linkPath), nullptr);
    ASSERT_EQ(Before().Find(linkPath)->kind, StateEntry::Kind::Link);
    if (CanRemoveDirectoryLinks())
    {
        ExpectFullSuccess();
    }
    else
    {
        // No program can remove a link here: it must stay rather than what it leads to be removed.
        ExpectPartialUninstall(
            ExpectedLog().Fails(Step::InstallFolder, ResultOf(ERROR_REPARSE_POINT_ENCOUNTERED), Reported()),
            DeclaredStateWith({linkPath}));
    }
}

class ServiceFolderTest : public InstallationFolderTest
{
};

TEST_F(ServiceFolderTest, A_folder_that_cannot_be_removed_only_warns)
{
    LayDownSample();
    const std::wstring folder = Expand(LR"(<ProgramFiles>\OrvaneAuthService)");
    const std::wstring file = folder + LR"(\modules\module-2.dll)";
    ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY));
    Run();
    // The result is a full one, so the log that holds the warning is deleted.
    ExpectFullSuccess(ExpectedLog().Warns(Step::AuthServiceProgramFolder, ResultOf(ERROR_ACCESS_DENIED), folder),
                      DeclaredStateWith({file}));
}

TEST_F(ServiceFolderTest, Links_in_place_of_the_data_folders_stay_with_all_that_they_lead_to)
{
    LayDownSample({Group::ServiceFolders});
    const std::wstring target = Expand(LR"(<ProgramData>\Brindlewave)");
    const std::wstring service = Expand(LR"(<ProgramData>\OrvaneAuthService)");
    const std::wstring updater = Expand(LR"(<ProgramData>\VelmoraUpdater)");
    const TestLink serviceLink(service, target);
    const TestLink updaterLink(updater, target);
    Run();
    ExpectFullSuccess(ExpectedLog()
                          .Warns(Step::AuthServiceDataFolder, ResultOf(ERROR_REPARSE_POINT_ENCOUNTERED), service)
                          .Warns(Step::UpdaterFolder, ResultOf(ERROR_REPARSE_POINT_ENCOUNTERED), updater),
                      DeclaredStateWith({service, updater}));
}

class ShortcutTest : public InstallationFolderTest
{
};

TEST_F(ShortcutTest, Folders_of_the_shortcuts_names_stay)
{
    LayDownSample({Group::Shortcuts});
    const std::wstring desktop = Expand(LR"(<PublicDesktop>\Velmora.lnk)");
    const std::wstring programs = Expand(LR"(<CommonPrograms>\Velmora.lnk)");
    WriteTestFile(desktop + LR"(\notes.txt)", 10);
    WriteTestFile(programs + LR"(\notes.txt)", 10);
    Run();
    ExpectFullSuccess({},
                      DeclaredStateWith({desktop, desktop + LR"(\notes.txt)", programs, programs + LR"(\notes.txt)"}));
}

TEST_F(ShortcutTest, A_read_only_shortcut_stays_and_makes_the_run_a_partial_one)
{
    LayDownSample();
    const std::wstring shortcut = Expand(LR"(<PublicDesktop>\Velmora.lnk)");
    ASSERT_TRUE(SetFileAttributesW(shortcut.c_str(), FILE_ATTRIBUTE_READONLY));
    Run();
    ExpectPartialUninstall(ExpectedLog().Fails(Step::DesktopShortcut, ResultOf(ERROR_ACCESS_DENIED)),
                           DeclaredStateWith({shortcut}));
}
} // namespace
} // namespace Testing
