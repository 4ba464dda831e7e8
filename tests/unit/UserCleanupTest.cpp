#include "Uninstaller/UserCleanup.h"

#include "support/common/ImportTableFake.h"
#include "support/common/Steps.h"
#include "support/common/Text.h"
#include "support/unit/FakeCodePage.h"
#include "support/unit/FakeDesktop.h"
#include "support/unit/FakeDesktopUser.h"
#include "support/unit/FakeFolders.h"
#include "support/unit/ProcessesTest.h"
#include "support/unit/TestFolder.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using namespace Testing;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Lines = std::vector<std::string>;

// A user who sits at the machine, and is not the one that this process runs as.
class UserCleanupTest : public ProcessesTest
{
protected:
    UserCleanupTest()
    {
        root.AddFile(L"Local\\Vel Mora\\deep\\data");
        root.AddFile(L"Local\\Tessaline\\data");
        root.AddFile(L"Local\\Vel Mora 2\\bystander");
        root.AddFile(L"Local\\bystander");
    }
    ~UserCleanupTest() override
    {
        EXPECT_TRUE(Exists(root / L"Local\\Vel Mora 2\\bystander"));
        EXPECT_TRUE(Exists(root / L"Local\\bystander"));
    }

    bool CleanUp() { return Uninstaller::CleanUpForCurrentUser({.logger = log.Logger(), .runType = {}}); }

    std::string Deleting(const std::wstring& name) const
    {
        return "|INFO|:    Attempting to delete '" + Narrow(root / L"Local\\" + name) + "'...";
    }

    void ExpectFolders(bool first, bool second) const
    {
        EXPECT_EQ(Exists(root / L"Local\\Vel Mora\\deep\\data"), first);
        EXPECT_EQ(Exists(root / L"Local\\Vel Mora"), first);
        EXPECT_EQ(Exists(root / L"Local\\Tessaline\\data"), second);
        EXPECT_EQ(Exists(root / L"Local\\Tessaline"), second);
    }

    TestFolder root;
    FakeFolders folders{root};
    FakeDesktopUser user{handles, processes, folders, root};

    Fake<&FormatMessageW> format = [](DWORD, LPCVOID, DWORD code, DWORD, LPWSTR text, DWORD, va_list*) -> DWORD {
        return static_cast<DWORD>(swprintf(text, 256, L"<%lx>", code));
    };
};

TEST_F(UserCleanupTest, Deletes_both_folders_of_the_user_at_the_machine)
{
    const Lines lines{Deleting(L"Vel Mora"), Deleting(L"Tessaline")};
    EXPECT_TRUE(CleanUp());
    ExpectFolders(false, false);
    EXPECT_EQ(log.Lines(), lines);

    EXPECT_TRUE(CleanUp()) << "a user without the folders is fine";
    EXPECT_EQ(log.Lines().size(), 4U);
    EXPECT_THAT(clock.Sleeps(), IsEmpty());
}

TEST_F(UserCleanupTest, Shows_how_far_it_is_between_the_folders)
{
    Journal messages;
    FakeDesktop desktop(messages);
    ShownStatusWindow window(desktop);
    window.Get()->SetPhase(9, 10, 60);
    messages.Take();
    messages.onCall = [this](const std::string&) { ExpectFolders(false, true); };

    EXPECT_TRUE(Uninstaller::CleanUpForCurrentUser({.logger = log.Logger(), .runType = {}, .window = window.Get()}));

    EXPECT_EQ(messages.All(), Calls{SentProgress(88)});
}

TEST_F(UserCleanupTest, A_folder_that_cannot_be_deleted_is_a_warning)
{
    for (const wchar_t* const name : {L"Local\\Vel Mora\\deep\\data", L"Local\\Tessaline\\data"})
    {
        SetFileAttributesW((root / name).c_str(), FILE_ATTRIBUTE_READONLY);
    }

    EXPECT_TRUE(CleanUp());

    EXPECT_EQ(
        log.Lines(),
        (Lines{Deleting(L"Vel Mora"),
               "|WARNING|: Unable to delete Velmora folder. Other applications may accessing this folder. Reason: "
               "<80070005>",
               Deleting(L"Tessaline"),
               "|WARNING|: Unable to delete Tessaline folder. Pellmark Studio may be running. Reason: "
               "<80070005>"}));
    EXPECT_EQ(clock.Sleeps(), std::vector<DWORD>(20, 1000));
}

TEST_F(UserCleanupTest, Deletes_nothing_when_nobody_sits_at_the_machine)
{
    user.Leave();

    EXPECT_FALSE(CleanUp());

    EXPECT_EQ(log.Lines(), Lines{std::string(c_userCleanUpFailed) +
                                 "Unable to find a explorer.exe process running under the active console session!"});
    ExpectFolders(true, true);
}

TEST_F(UserCleanupTest, Deletes_nothing_when_the_users_folder_is_not_told)
{
    user.folderResult = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

    EXPECT_FALSE(CleanUp());

    EXPECT_THAT(log.Lines(), ElementsAre(AllOf(StartsWith(std::string(c_userCleanUpFailed)),
                                               HasSubstr("UserCleanup.cpp"), HasSubstr("80070002"))));
    ExpectFolders(true, true);
}

TEST_F(UserCleanupTest, Tells_of_an_exception_with_text_in_the_code_page_of_the_system)
{
    const FakeCodePage western(1252);
    journal.onCall = [](const std::string&) { throw std::runtime_error("no luck \x80\r\n"); };

    EXPECT_FALSE(CleanUp());

    EXPECT_EQ(log.Lines(), Lines{std::string(c_userCleanUpFailed) + "no luck ?"}); // not ASCII
}

TEST_F(UserCleanupTest, Passes_on_what_is_no_standard_exception)
{
    journal.onCall = [](const std::string&) { throw 42; };

    EXPECT_THROW(CleanUp(), int);

    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectFolders(true, true);
}

} // namespace
