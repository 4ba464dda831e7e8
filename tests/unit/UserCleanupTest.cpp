#include "Uninstaller/UserCleanup.h"

#include "support/FakeCodePage.h"
#include "support/FakeDesktopUser.h"
#include "support/FakeFolders.h"
#include "support/FakeProcesses.h"
#include "support/FakeStatusWindow.h"
#include "support/ImportTableFake.h"
#include "support/RunLog.h"
#include "support/TestFolder.h"
#include "support/Text.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using namespace Testing;
using Lines = std::vector<std::string>;

// A user who sits at the machine, and is not the one that this process runs as.
class UserCleanupTest : public testing::Test
{
protected:
    UserCleanupTest()
    {
        root.AddFile(L"Local\\Vel Mora\\deep\\data");
        root.AddFile(L"Local\\Tessaline\\data");
        root.AddFile(L"Local\\Vel Mora 2\\bystander");
        root.AddFile(L"Local\\bystander");
    }

    bool CleanUp() { return Uninstaller::CleanUpForCurrentUser({.logger = log.Logger(), .runType = {}}); }

    std::string Path(const std::wstring& name) const { return Narrow(root / name); }

    void ExpectBystanders() const
    {
        EXPECT_TRUE(Exists(root / L"Local\\Vel Mora 2\\bystander"));
        EXPECT_TRUE(Exists(root / L"Local\\bystander"));
        EXPECT_EQ(processes.OpenHandles(), 0U);
    }

    VirtualClock clock;
    TestFolder root;
    FakeProcesses processes;
    RunLog log;
    FakeFolders folders{root};
    FakeDesktopUser user{processes, folders, root};

    Fake<&FormatMessageW> format = [](DWORD, LPCVOID, DWORD code, DWORD, LPWSTR text, DWORD, va_list*) -> DWORD {
        return static_cast<DWORD>(swprintf(text, 256, L"<%lx>", code));
    };
};

TEST_F(UserCleanupTest, deletes_both_folders_of_the_user_at_the_machine)
{
    EXPECT_TRUE(CleanUp());

    EXPECT_FALSE(Exists(root / L"Local\\Vel Mora"));
    EXPECT_FALSE(Exists(root / L"Local\\Tessaline"));
    EXPECT_EQ(log.Lines(), (Lines{"|INFO|:    Attempting to delete '" + Path(L"Local\\Vel Mora") + "'...",
                                  "|INFO|:    Attempting to delete '" + Path(L"Local\\Tessaline") + "'..."}));
    EXPECT_TRUE(clock.Sleeps().empty());
    ExpectBystanders();
}

TEST_F(UserCleanupTest, shows_how_far_it_is_between_the_folders)
{
    FakeStatusWindow desktop;
    ShownStatusWindow window(desktop);
    window.Get()->SetPhase(9, 10, 60);
    desktop.onCall = [this](const std::string&) {
        EXPECT_FALSE(Exists(root / L"Local\\Vel Mora"));
        EXPECT_TRUE(Exists(root / L"Local\\Tessaline"));
    };

    EXPECT_TRUE(Uninstaller::CleanUpForCurrentUser({.logger = log.Logger(), .runType = {}, .window = window.Get()}));

    EXPECT_EQ(desktop.Calls().back(), "progress 88");
}

TEST_F(UserCleanupTest, tells_of_an_exception_with_text_in_the_code_page_of_the_system)
{
    const FakeCodePage western(1252);
    Fake<&WTSGetActiveConsoleSessionId> console = []() -> DWORD { throw std::runtime_error("no luck \x80\r\n"); };

    EXPECT_FALSE(CleanUp());

    EXPECT_EQ(log.Lines(),
              Lines{"|WARNING|: Something went wrong while trying to clean up user files: no luck ?"}); // not ASCII
}

TEST_F(UserCleanupTest, passes_on_what_is_no_standard_exception)
{
    Fake<&WTSGetActiveConsoleSessionId> console = []() -> DWORD { throw 42; };

    EXPECT_THROW(CleanUp(), int);

    EXPECT_TRUE(log.Lines().empty());
    EXPECT_TRUE(Exists(root / L"Local\\Vel Mora"));
}

TEST_F(UserCleanupTest, a_user_without_the_folders_is_fine)
{
    RemoveTestFolder(root / L"Local\\Vel Mora");
    RemoveTestFolder(root / L"Local\\Tessaline");

    EXPECT_TRUE(CleanUp());

    EXPECT_EQ(log.Lines().size(), 2U);
    ExpectBystanders();
}

TEST_F(UserCleanupTest, a_first_folder_that_cannot_be_deleted_is_a_warning_and_the_other_one_goes)
{
    SetFileAttributesW((root / L"Local\\Vel Mora\\deep\\data").c_str(), FILE_ATTRIBUTE_READONLY);

    EXPECT_TRUE(CleanUp());

    EXPECT_EQ(
        log.Lines(),
        (Lines{"|INFO|:    Attempting to delete '" + Path(L"Local\\Vel Mora") + "'...",
               "|WARNING|: Unable to delete Velmora folder. Other applications may accessing this folder. Reason: "
               "<80070005>",
               "|INFO|:    Attempting to delete '" + Path(L"Local\\Tessaline") + "'..."}));
    EXPECT_EQ(clock.Sleeps(), std::vector<DWORD>(10, 1000));
    EXPECT_FALSE(Exists(root / L"Local\\Tessaline"));
    ExpectBystanders();
}

TEST_F(UserCleanupTest, a_second_folder_that_cannot_be_deleted_is_a_warning)
{
    SetFileAttributesW((root / L"Local\\Tessaline\\data").c_str(), FILE_ATTRIBUTE_READONLY);

    EXPECT_TRUE(CleanUp());

    EXPECT_EQ(log.Lines().back(),
              "|WARNING|: Unable to delete Tessaline folder. Pellmark Studio may be running. Reason: <80070005>");
    EXPECT_EQ(clock.Sleeps(), std::vector<DWORD>(10, 1000));
    EXPECT_FALSE(Exists(root / L"Local\\Vel Mora"));
    ExpectBystanders();
}

TEST_F(UserCleanupTest, deletes_nothing_when_nobody_sits_at_the_machine)
{
    user.Leave();

    EXPECT_FALSE(CleanUp());

    EXPECT_EQ(log.Lines(),
              Lines{"|WARNING|: Something went wrong while trying to clean up user files: Unable to find a "
                    "explorer.exe process running under the active console session!"});
    EXPECT_TRUE(Exists(root / L"Local\\Vel Mora\\deep\\data"));
    EXPECT_TRUE(Exists(root / L"Local\\Tessaline\\data"));
    ExpectBystanders();
}

TEST_F(UserCleanupTest, deletes_nothing_when_the_users_folder_is_not_told)
{
    user.folderResult = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

    EXPECT_FALSE(CleanUp());

    ASSERT_EQ(log.Lines().size(), 1U);
    EXPECT_EQ(log.Lines().front().find("|WARNING|: Something went wrong while trying to clean up user files: "), 0U);
    EXPECT_NE(log.Lines().front().find("UserCleanup.cpp"), std::string::npos) << log.Lines().front();
    EXPECT_NE(log.Lines().front().find("80070002"), std::string::npos) << log.Lines().front();
    EXPECT_TRUE(Exists(root / L"Local\\Vel Mora\\deep\\data"));
    ExpectBystanders();
}

TEST_F(UserCleanupTest, other_exceptions_pass)
{
    Fake<&WTSGetActiveConsoleSessionId> noSession = []() -> DWORD { throw 42; };

    EXPECT_THROW(CleanUp(), int);

    EXPECT_TRUE(log.Lines().empty());
    ExpectBystanders();
}

} // namespace
