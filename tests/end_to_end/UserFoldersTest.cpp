// The folders of the user who sits at the machine, and who is not elevated: they go with the settings.
#include "EndToEndTest.h"
#include "LimitedDesktop.h"
#include "support/DirectoryLink.h"
#include "support/Names.h"
#include "support/SampleInstallation.h"

#include <windows.h>

#include <string>

namespace Testing
{
namespace
{
constexpr int c_removeSettings = 1;

class UserFoldersTest : public LimitedDesktop, public EndToEndTest
{
protected:
    // A run whose user wants the settings to go.
    void RunRemovingSettings(const DialogAnswer& end = FullSuccessMessage())
    {
        Run(L"-g", {.answers = {AnswerConfirmation(IDYES, c_removeSettings), end}});
    }

    static ExpectedLog Log() { return ExpectedLog().Runs("Gui").RemovesSettings(); }

    static std::wstring UserFile(const std::wstring& name) { return Expand(L"<LocalAppData>\\") + name; }
};

TEST_F(UserFoldersTest, Go_with_the_settings)
{
    LayDownSample();
    RunRemovingSettings();
    ExpectFullSuccess(Log(), DeclaredState(true));
}

TEST_F(UserFoldersTest, May_be_gone_already)
{
    LayDownSample({Group::UserFolders});
    RunRemovingSettings();
    ExpectFullSuccess(Log(), DeclaredState(true));
}

TEST_F(UserFoldersTest, A_file_that_is_in_use_is_a_warning_and_the_rest_goes)
{
    LayDownSample();
    for (const std::wstring name : {L"Vel Mora", L"Tessaline"})
    {
        WriteTestFile(UserFile(name + L"\\kept.txt"), 10, FILE_ATTRIBUTE_READONLY);
    }
    RunRemovingSettings();
    constexpr auto c_denied = static_cast<unsigned long>(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    MachineState state = DeclaredState(true);
    for (const std::wstring name : {L"Vel Mora", L"Tessaline"})
    {
        state.CopyWithParents(UserFile(name + L"\\kept.txt"), Before());
    }
    ExpectFullSuccess(Log().KeepsUserFolder(L"Vel Mora", c_denied).KeepsUserFolder(L"Tessaline", c_denied), state);
}

TEST_F(UserFoldersTest, Links_in_their_place_stay_with_what_they_lead_to)
{
    LayDownSample({Group::UserFolders});
    const std::wstring target = Expand(L"<Downloads>\\target");
    WriteTestFile(target + L"\\file.txt", 10, FILE_ATTRIBUTE_NORMAL);
    const std::wstring link = UserFile(L"Tessaline");
    ASSERT_TRUE(CreateDirectoryLink(link, target));
    RunRemovingSettings();
    MachineState state = DeclaredState(true);
    state.CopyWithParents(link, Before());
    ExpectFullSuccess(Log().KeepsUserFolder(L"Tessaline", static_cast<unsigned long>(
                                                              HRESULT_FROM_WIN32(ERROR_REPARSE_POINT_ENCOUNTERED))),
                      state);
    RemoveDirectoryLink(link);
    RemoveTree(target);
}
} // namespace
} // namespace Testing
