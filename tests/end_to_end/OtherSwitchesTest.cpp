// Switches that do not uninstall.
#include "EndToEndTest.h"

#include <string>
#include <string_view>

namespace Testing
{
namespace
{
class HelpTest : public EndToEndTest, public ::testing::WithParamInterface<const char*>
{
};

TEST_P(HelpTest, The_help_removes_nothing)
{
    LayDownSample();
    const std::string_view arguments = GetParam();
    Run(std::wstring(arguments.begin(), arguments.end()));
    EXPECT_EQ(Result().exitCode, c_fullSuccess);
    ExpectState(UntouchedState());
}

INSTANTIATE_TEST_SUITE_P(Switch, HelpTest, ::testing::Values("-h", "--help", "-S", "--SILENT", "/s", "-s-"));
} // namespace
} // namespace Testing
