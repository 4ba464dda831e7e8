// A user whose administrator's rights are asleep: as who starts the program, and as who sits at the machine.
#include "support/end_to_end/LimitedUser.h"

#include "EndToEndTest.h"
#include "support/common/DirectoryLink.h"
#include "support/end_to_end/Identity.h"
#include "support/end_to_end/LogViewer.h"
#include "support/end_to_end/Names.h"

#include <windows.h>

#include <string>

namespace Testing
{
namespace
{
class NotElevatedTest : public EndToEndTest
{
};

TEST_F(NotElevatedTest, A_process_is_refused)
{
    LayDownSample();
    const UniqueHandle token = LimitedToken();
    if (IsWine())
    {
        RunAsInvoker(ProgramPath());
    }
    // Without the variable Windows would not start it at all, for what its manifest demands.
    Run(L"-g", {.environment = {{L"__COMPAT_LAYER", L"RunAsInvoker"}},
                .answers = {{.title = L"Uninstaller Not Elevated",
                             .message = L"Please run the Velmora installer/uninstaller as an administrator to "
                                        L"continue."}},
                .token = token.get()});
    ExpectEnd(c_notElevated, NotElevatedLog("Gui"), UntouchedState(), true);
}

// The program is elevated, and the user's desktop is not. That one is there first.
class DesktopUserTest : public LimitedDesktop, public EndToEndTest
{
protected:
    // A run whose user wants the settings to go.
    void RunRemovingSettings()
    {
        constexpr int c_removeSettings = 1;
        Run(L"-g", {.answers = {AnswerConfirmation(IDYES, c_removeSettings), FullSuccessMessage()}});
    }

    static ExpectedLog Log() { return ExpectedLog().Runs("Gui").RemovesSettings(); }

    static std::wstring UserFile(const std::wstring& name) { return Expand(L"<LocalAppData>\\") + name; }
};

TEST_F(DesktopUserTest, Is_shown_a_log_that_tells_of_failures_without_elevation)
{
    LayDownSample();
    const LogViewer viewer;
    const std::wstring kept = InstallFolder() + L"\\read-only.txt";
    WriteTestFile(kept, 10, FILE_ATTRIBUTE_READONLY);
    Run(L"", {.answers = {AnswerConfirmation(IDYES), PartialUninstallMessage()}});
    ExpectPartialUninstall(ExpectedLog().Runs("Gui").Fails(Step::InstallFolder, ERROR_ACCESS_DENIED),
                           DeclaredStateWith({kept}));
    const LogViewer::Note note = viewer.Read();
    EXPECT_EQ(note.file, ToUtf8(Result().logPath));
    EXPECT_EQ(note.user, ToUtf8(UserOf(LimitedToken().get())));
    EXPECT_EQ(note.elevation, "not elevated");
}

TEST_F(DesktopUserTest, Has_folders_that_go_with_the_settings)
{
    LayDownSample();
    RunRemovingSettings();
    ExpectFullSuccess(Log(), DeclaredState(true));
}

TEST_F(DesktopUserTest, Has_folders_that_cannot_be_deleted_which_is_a_warning_and_a_link_that_is_not_followed)
{
    LayDownSample({Step::VelmoraUserFolder, Step::TessalineUserFolder});
    const std::wstring file = UserFile(LR"(Vel Mora\kept.txt)");
    WriteTestFile(UserFile(LR"(Vel Mora\gone.txt)"), 10);
    WriteTestFile(file, 10, FILE_ATTRIBUTE_READONLY);
    const std::wstring target = Expand(L"<Downloads>\\target");
    WriteTestFile(target + L"\\file.txt", 10);
    const std::wstring link = UserFile(L"Tessaline");
    ASSERT_TRUE(CreateDirectoryLink(link, target));
    RunRemovingSettings();
    MachineState state = DeclaredState(true);
    state.Erase(UserFile(LR"(Vel Mora\gone.txt)"));
    state.CopyWithParents(file, Before());
    state.CopyWithParents(link, Before());
    ExpectFullSuccess(Log()
                          .Fails(Step::VelmoraUserFolder, ERROR_ACCESS_DENIED)
                          .Fails(Step::TessalineUserFolder, ERROR_REPARSE_POINT_ENCOUNTERED),
                      state);
    RemoveDirectoryLink(link);
    RemoveTree(target);
}
} // namespace
} // namespace Testing
