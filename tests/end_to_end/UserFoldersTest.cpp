// The folders of the user who sits at the machine, and who is not elevated: they go with the settings.
#include "EndToEndTest.h"
#include "support/common/DirectoryLink.h"
#include "support/end_to_end/LimitedUser.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/SampleInstallation.h"

#include <windows.h>

#include <string>

namespace Testing
{
namespace
{
class UserFoldersTest : public LimitedDesktop, public EndToEndTest
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

TEST_F(UserFoldersTest, Go_with_the_settings)
{
    LayDownSample();
    RunRemovingSettings();
    ExpectFullSuccess(Log(), DeclaredState(true));
}

TEST_F(UserFoldersTest, What_cannot_be_deleted_is_a_warning_and_a_link_stays_with_what_it_leads_to)
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
    constexpr auto c_denied = static_cast<unsigned long>(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    constexpr auto c_link = static_cast<unsigned long>(HRESULT_FROM_WIN32(ERROR_REPARSE_POINT_ENCOUNTERED));
    ExpectFullSuccess(Log().Fails(Step::VelmoraUserFolder, c_denied).Fails(Step::TessalineUserFolder, c_link), state);
    RemoveDirectoryLink(link);
    RemoveTree(target);
}
} // namespace
} // namespace Testing
