// The product as it is installed, uninstalled as it is meant to be.
#include "EndToEndTest.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/Servers.h"

namespace Testing
{
namespace
{
using Calls = std::vector<std::wstring>;

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
    if (HasServers())
    {
        EXPECT_EQ(StateOf(Server::Firewall).Calls(), (Calls{L"create", L"rules", L"remove Velmora Login Server"}));
        EXPECT_EQ(StateOf(Server::Packages).Calls(),
                  (Calls{L"FindProvisionedPackages", L"DeprovisionPackageForAllUsersAsync Orvane.Velmora_k4wz81tqm0d3x",
                         L"FindPackages", c_packageRemoval}));
    }
    ExpectNothingToDo();
}

TEST_F(FullUninstallTest, Nothing_installed_leaves_everything_as_it_is)
{
    ExpectNothingToDo();
}
} // namespace
} // namespace Testing
