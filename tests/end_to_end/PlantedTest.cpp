// Somebody was in the temporary folder before the program: what lies there under its names is not followed.
#include "EndToEndTest.h"
#include "support/common/DirectoryLink.h"

#include <windows.h>

#include <string>

namespace Testing
{
namespace
{
class PlantedTest : public EndToEndTest
{
protected:
    PlantedTest()
    {
        LayDownSample();
        WriteTestFile(m_file, 100);
    }

    ~PlantedTest() override
    {
        // Links first: what leads nowhere is hard to see.
        RemoveTree(TemporaryFolder() + L"Velmora");
        RemoveTree(m_target);
    }

    void ExpectTargetUntouched() const
    {
        MachineState state = After();
        state.Erase(m_target);
        state.CopyTree(m_target, Before());
        ExpectState(state);
    }

    // A user's folder that has nothing to do with the product.
    const std::wstring m_target = Expand(LR"(<Downloads>\somebody's)");
    const std::wstring m_file = m_target + LR"(\letter.txt)";
};

class PlantedLinkTest : public PlantedTest, public ::testing::WithParamInterface<const wchar_t*>
{
};

TEST_P(PlantedLinkTest, In_place_of_a_folder_that_is_written_to_is_not_followed)
{
    const std::wstring link = TemporaryFolder() + GetParam();
    WriteTestFile(link + L".planted", 1); // for the folders above it
    ASSERT_TRUE(CreateDirectoryLink(link, m_target));
    RunInstalled();
    // A link in the place of the reports costs them alone.
    const bool isInTheWay = !CanRemoveDirectoryLinks() && !link.ends_with(L"Sentry");
    EXPECT_EQ(Result().exitCode, isInTheWay ? c_copyFailed : c_fullSuccess);
    ExpectTargetUntouched();
}

INSTANTIATE_TEST_SUITE_P(Place, PlantedLinkTest,
                         ::testing::Values(L"Velmora", LR"(Velmora\Uninstaller)", LR"(Velmora\Uninstaller\Sentry)"));

TEST_F(PlantedTest, Name_of_another_file_in_the_place_of_the_copy_does_not_change_that_file)
{
    WriteTestFile(RelocatedCopy() + L".planted", 1); // for the folders above it
    ASSERT_TRUE(CreateHardLinkW(RelocatedCopy().c_str(), m_file.c_str(), nullptr));
    RunInstalled();
    EXPECT_EQ(Result().exitCode, c_fullSuccess);
    ExpectTargetUntouched();
}
} // namespace
} // namespace Testing
