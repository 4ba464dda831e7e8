// The product as it is installed, uninstalled as it is meant to be.
#include "EndToEndTest.h"
#include "support/Names.h"

namespace Testing
{
namespace
{
class FullUninstallTest : public EndToEndTest
{
};

TEST_F(FullUninstallTest, A_silent_run_removes_exactly_what_the_installer_made)
{
    LayDownSample();
    Run(L"-s");
    ExpectFullSuccess();
    // The declaration itself must not be empty: everything in it was there.
    for (const SampleItem& item : SampleItems())
    {
        EXPECT_NE(Before().Find(item.path), nullptr) << item.what;
    }
}

TEST_F(FullUninstallTest, The_long_switch_does_the_same)
{
    LayDownSample();
    Run(L"--silent");
    ExpectFullSuccess();
}

TEST_F(FullUninstallTest, What_follows_the_switch_is_ignored)
{
    LayDownSample();
    Run(L"-s --gui");
    ExpectFullSuccess();
}

TEST_F(FullUninstallTest, Only_the_32_bit_programs_own_registry_looks_alike_and_stays)
{
    LayDownSample();
    constexpr std::wstring_view c_key =
        LR"(HKLM\SOFTWARE\Wow6432Node\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)";
    WriteValue(c_key, L"InstallLocation", REG_SZ, TextValue(REG_SZ, LR"(C:\Elsewhere)").data);
    Run();
    ExpectFullSuccess();
    RemoveValue(c_key, L"InstallLocation");
}

TEST_F(FullUninstallTest, Nothing_installed_leaves_everything_as_it_is)
{
    Run();
    ExpectFullSuccess(ExpectedLog().FindsNoRecord().FindsNoPackage().LeavesOut(Step::InstallFolder));
}

TEST_F(FullUninstallTest, Only_bystanders_there_leaves_everything_as_it_is)
{
    LayDownSample({Group::InstallFolder, Group::ServiceFolders, Group::Shortcuts, Group::MachinePath,
                   Group::FirewallRule, Group::StartupEntry, Group::Registration, Group::UninstallEntry,
                   Group::Settings, Group::UserFolders, Group::LegacyPackage});
    Run();
    ExpectFullSuccess(ExpectedLog().FindsNoRecord().FindsNoPackage().LeavesOut(Step::InstallFolder));
}

TEST_F(FullUninstallTest, A_second_run_changes_nothing)
{
    LayDownSample();
    Run();
    ExpectFullSuccess();
    Run();
    ExpectFullSuccess(ExpectedLog().FindsNoRecord().FindsNoPackage().LeavesOut(Step::InstallFolder));
}

std::string NameOfParameter(const ::testing::TestParamInfo<Group>& parameter)
{
    const std::string_view name = NameOf(parameter.param);
    std::string result;
    for (const char character : name.substr(0, name.find(',')))
    {
        if (character == ' ')
        {
            result += '_';
        }
        else if (character != '\'')
        {
            result += character == '-' ? '_' : character;
        }
    }
    return result;
}

class MissingPartTest : public EndToEndTest, public ::testing::WithParamInterface<Group>
{
};

TEST_P(MissingPartTest, A_part_that_is_missing_is_no_failure)
{
    LayDownSample({GetParam()});
    Run();
    ExpectedLog log;
    if (GetParam() == Group::UninstallEntry)
    {
        log.FindsNoRecord();
    }
    if (GetParam() == Group::InstallFolder)
    {
        log.LeavesOut(Step::InstallFolder);
    }
    if (GetParam() == Group::LegacyPackage)
    {
        log.FindsNoPackage();
    }
    ExpectFullSuccess(log);
}

INSTANTIATE_TEST_SUITE_P(Without, MissingPartTest, ::testing::ValuesIn(AllGroups()), NameOfParameter);
} // namespace
} // namespace Testing
