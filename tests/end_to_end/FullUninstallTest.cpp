// The product as it is installed, uninstalled as it is meant to be.
#include "EndToEndTest.h"
#include "support/end_to_end/Names.h"

namespace Testing
{
namespace
{
class FullUninstallTest : public EndToEndTest
{
protected:
    // A run on a machine without the product, or with what a run that succeeded leaves.
    void ExpectNothingToDo()
    {
        Run();
        ExpectFullSuccess(ExpectedLog().FindsNoRecord().FindsNoPackage().LeavesOut(Step::InstallFolder));
    }
};

TEST_F(FullUninstallTest, A_silent_run_removes_exactly_what_the_installer_made_and_a_second_one_nothing)
{
    LayDownSample();
    Run();
    ExpectFullSuccess();
    // The declaration itself must not be empty: everything in it was there.
    for (const SampleItem& item : SampleItems())
    {
        EXPECT_NE(Before().Find(item.path), nullptr) << ToUtf8(item.path);
    }
    ExpectNothingToDo();
}

TEST_F(FullUninstallTest, What_follows_the_switch_is_ignored)
{
    LayDownSample();
    Run(L"--silent --gui");
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
    ExpectNothingToDo();
}

class MissingPartTest : public EndToEndTest, public ::testing::WithParamInterface<Step>
{
};

TEST_P(MissingPartTest, A_part_that_is_missing_is_no_failure)
{
    LayDownSample({GetParam()});
    Run();
    ExpectedLog log;
    if (GetParam() == Step::UninstallEntry)
    {
        log.FindsNoRecord();
    }
    if (GetParam() == Step::InstallFolder)
    {
        log.LeavesOut(Step::InstallFolder);
    }
    if (GetParam() == Step::LegacyPackage)
    {
        log.FindsNoPackage();
    }
    ExpectFullSuccess(log);
}

// Those that remove something which the sample lays down, and which does not stay in a silent run anyway.
std::vector<Step> StepsOfSample()
{
    std::vector<Step> steps;
    for (const StepRow& row : Steps())
    {
        if (!row.parts.empty() && row.parts.front().kind != ProductPart::Kind::Service && !row.isOnlyWithSettings)
        {
            steps.push_back(row.step);
        }
    }
    return steps;
}

INSTANTIATE_TEST_SUITE_P(Without, MissingPartTest, ::testing::ValuesIn(StepsOfSample()),
                         [](const auto& step) { return std::string(RowOf(step.param).name); });
} // namespace
} // namespace Testing
