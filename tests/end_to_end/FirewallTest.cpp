// The rule in the firewall, in every state in which it can be found, and a firewall that does not do as it is told.
#include "EndToEndTest.h"
#include "support/Servers.h"

#include <algorithm>

namespace Testing
{
namespace
{
constexpr wchar_t c_rules[] = L"Rules";
constexpr std::wstring_view c_rulesKey = LR"(HKLM\SOFTWARE\Velmora.Testing\Firewall\Rules)";
constexpr wchar_t c_ruleName[] = L"Velmora Login Server";

constexpr unsigned long c_noService = 0x80070426;
constexpr unsigned long c_accessDenied = 0x80070005;
constexpr unsigned long c_notFound = 0x80070002;
constexpr unsigned long c_unspecified = 0x80004005;

using Calls = std::vector<std::wstring>;

const Calls c_oneAttempt{L"create", L"rules", L"remove Velmora Login Server"};

class FirewallTest : public EndToEndTest
{
protected:
    void SetUp() override
    {
        if (!HasServers())
        {
            GTEST_SKIP() << "The firewall of a real Windows cannot be replaced.";
        }
    }

    // The run is a partial one, with the rule still there, and nothing else.
    void ExpectRuleLeft(unsigned long result) const
    {
        MachineState state = DeclaredState();
        state.CopyTree(c_rulesKey, Before());
        ExpectPartialUninstall(ExpectedLog().Fails(Step::FirewallRule, result), state);
        // Ten attempts, a second apart.
        EXPECT_GE(Result().duration, std::chrono::seconds(9));
    }

    static Calls TimesTen(const Calls& calls)
    {
        Calls all;
        for (int attempt = 0; attempt < 10; ++attempt)
        {
            all.insert(all.end(), calls.begin(), calls.end());
        }
        return all;
    }

    ServerState firewall = StateOf(Server::Firewall);
};

TEST_F(FirewallTest, Our_rule_goes_by_its_name_in_one_attempt)
{
    LayDownSample();
    Run();
    ExpectFullSuccess();
    EXPECT_EQ(firewall.Calls(), c_oneAttempt);
}

TEST_F(FirewallTest, A_rule_that_is_not_there_is_removed_all_the_same)
{
    LayDownSample({Group::FirewallRule});
    Run();
    ExpectFullSuccess();
    EXPECT_EQ(firewall.Calls(), c_oneAttempt);
}

TEST_F(FirewallTest, Of_several_rules_with_our_name_the_firewall_is_asked_to_remove_one)
{
    LayDownSample();
    firewall.WriteText(c_rules, L"5", c_ruleName);
    firewall.WriteText(c_rules, L"6", c_ruleName);
    Run();
    // Which of them goes is the firewall's business: the tests' own takes the first.
    ExpectFullSuccess();
    EXPECT_EQ(firewall.Calls(), c_oneAttempt);
}

TEST_F(FirewallTest, A_rule_that_can_be_removed_at_the_third_attempt_is_no_failure)
{
    LayDownSample();
    firewall.WriteNumber({}, L"RemoveResult", c_accessDenied);
    firewall.WriteNumber({}, L"RemoveFailures", 2);
    Run();
    MachineState state = DeclaredState();
    CopyAfter(state, LR"(HKLM\SOFTWARE\Velmora.Testing\Firewall : RemoveFailures)");
    ExpectFullSuccess({}, state);
    EXPECT_EQ(std::ranges::count(firewall.Calls(), c_oneAttempt.back()), 3);
    EXPECT_GE(Result().duration, std::chrono::seconds(2));
}

TEST_F(FirewallTest, A_rule_that_can_never_be_removed_makes_the_run_a_partial_one)
{
    LayDownSample();
    firewall.WriteNumber({}, L"RemoveResult", c_accessDenied);
    Run();
    ExpectRuleLeft(c_accessDenied);
    EXPECT_EQ(firewall.Calls(), TimesTen(c_oneAttempt));
}

TEST_F(FirewallTest, A_firewall_that_reports_an_unknown_rule_makes_the_run_a_partial_one)
{
    LayDownSample({Group::FirewallRule});
    firewall.WriteNumber({}, L"UnknownRuleResult", c_notFound);
    Run();
    ExpectRuleLeft(c_notFound);
    EXPECT_EQ(firewall.Calls(), TimesTen(c_oneAttempt));
}

TEST_F(FirewallTest, Rules_that_cannot_be_had_make_the_run_a_partial_one)
{
    LayDownSample();
    firewall.WriteNumber({}, L"RulesResult", c_noService);
    Run();
    ExpectRuleLeft(c_noService);
    EXPECT_EQ(firewall.Calls(), TimesTen({L"create", L"rules"}));
}

TEST_F(FirewallTest, A_firewall_that_gives_no_object_is_an_unspecified_failure)
{
    LayDownSample();
    firewall.WriteNumber({}, L"CreateResult", c_accessDenied);
    Run();
    ExpectRuleLeft(c_unspecified);
    EXPECT_EQ(firewall.Calls(), TimesTen({L"create"}));
}

TEST_F(FirewallTest, A_machine_without_a_firewall_is_an_unspecified_failure)
{
    LayDownSample();
    UnregisterServer(Server::Firewall);
    Run();
    ExpectRuleLeft(c_unspecified);
    EXPECT_EQ(firewall.Calls(), Calls{});
}
} // namespace
} // namespace Testing
