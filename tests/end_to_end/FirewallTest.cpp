// The removal of the rule reaches a firewall through COM. What it does in each case, the unit tests show.
#include "EndToEndTest.h"
#include "support/end_to_end/Servers.h"

namespace Testing
{
namespace
{
class FirewallTest : public EndToEndTest
{
protected:
    void SetUp() override
    {
        if (!HasServers())
        {
            GTEST_SKIP() << "The firewall of a real Windows cannot be replaced.";
        }
        LayDownSample();
    }

    // The run is a partial one, with the rule still there, and nothing else.
    void ExpectRuleLeft(DWORD result) const
    {
        MachineState state = DeclaredState();
        state.CopyTree(LR"(HKLM\SOFTWARE\Velmora.Testing\Firewall\Rules)", Before());
        ExpectPartialUninstall(ExpectedLog().Fails(Step::FirewallRule, result), state);
    }

    ServerState firewall = StateOf(Server::Firewall);
    const std::vector<std::wstring> c_oneAttempt{L"create", L"rules", L"remove Velmora Login Server"};
};

TEST_F(FirewallTest, Our_rule_goes_by_its_name_in_one_attempt)
{
    Run();
    ExpectFullSuccess();
    EXPECT_EQ(firewall.Calls(), c_oneAttempt);
}

TEST_F(FirewallTest, A_rule_that_can_never_be_removed_makes_the_run_a_partial_one_after_ten_attempts)
{
    firewall.WriteNumber({}, L"RemoveResult", 0x80070005);
    Run();
    ExpectRuleLeft(ERROR_ACCESS_DENIED);
    EXPECT_EQ(firewall.Calls().size(), 10 * c_oneAttempt.size());
}

TEST_F(FirewallTest, A_machine_without_a_firewall_is_an_unspecified_failure)
{
    UnregisterServer(Server::Firewall);
    Run();
    ExpectRuleLeft(0x80004005);
}
} // namespace
} // namespace Testing
