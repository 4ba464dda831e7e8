#include "Installer/Firewall.h"

#include "support/FailureLog.h"
#include "support/FakeFirewall.h"
#include "support/VirtualClock.h"

#include <objbase.h>

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char c_create[] =
    "create {E2B3C97F-6AE1-41AC-817A-F6F92166D7DD} none 1 {98325047-C671-4174-8D81-DEFCD3F03186}";

// The fake firewall checks at the end that nothing of it is still held.
class FirewallTest : public testing::Test
{
protected:
    // The failures that were recorded, each with its source.
    using Failures = std::vector<FailureLog::Entry>;

    VirtualClock clock;
    FailureLog failures;
    FakeFirewall firewall;
};

TEST_F(FirewallTest, RemoveFirewallRule_removes_the_rule_by_its_name)
{
    EXPECT_EQ(RemoveFirewallRule(), S_OK);

    EXPECT_THAT(firewall.Calls(),
                ElementsAre(c_create, "rules", "text Velmora Login Server", "remove Velmora Login Server", "free text",
                            "release rules", "release policy"));
    EXPECT_THAT(failures.Entries(), IsEmpty());
    EXPECT_THAT(clock.Sleeps(), IsEmpty());
}

TEST_F(FirewallTest, RemoveFirewallRule_returns_E_FAIL_and_records_nothing_without_a_policy_object)
{
    firewall.givesPolicy = false;

    for (const HRESULT result : {REGDB_E_CLASSNOTREG, E_ACCESSDENIED, E_OUTOFMEMORY, S_OK, S_FALSE})
    {
        firewall.createResult = result;
        EXPECT_EQ(RemoveFirewallRule(), E_FAIL);
    }

    EXPECT_THAT(firewall.Calls(), ElementsAre(c_create, c_create, c_create, c_create, c_create));
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(FirewallTest, RemoveFirewallRule_uses_a_policy_object_whatever_its_creation_returns)
{
    firewall.createResult = E_ACCESSDENIED;

    EXPECT_EQ(RemoveFirewallRule(), S_OK);

    EXPECT_THAT(firewall.Calls(), testing::Contains("remove Velmora Login Server"));
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(FirewallTest, RemoveFirewallRule_reports_rules_that_cannot_be_had)
{
    firewall.rulesResult = HRESULT_FROM_WIN32(ERROR_SERVICE_NOT_ACTIVE);

    EXPECT_EQ(RemoveFirewallRule(), HRESULT_FROM_WIN32(ERROR_SERVICE_NOT_ACTIVE));

    EXPECT_THAT(firewall.Calls(), ElementsAre(c_create, "rules", "release policy"));
    EXPECT_EQ(failures.Entries(), (Failures{{"Firewall", HRESULT_FROM_WIN32(ERROR_SERVICE_NOT_ACTIVE)}}));
}

TEST_F(FirewallTest, RemoveFirewallRule_reports_that_memory_ran_out)
{
    firewall.hasMemoryForText = false;

    EXPECT_EQ(RemoveFirewallRule(), E_OUTOFMEMORY);

    EXPECT_THAT(firewall.Calls(),
                ElementsAre(c_create, "rules", "text Velmora Login Server", "release rules", "release policy"));
    EXPECT_EQ(failures.Entries(), (Failures{{"Firewall", E_OUTOFMEMORY}}));
}

TEST_F(FirewallTest, RemoveFirewallRule_reports_a_removal_that_fails_after_one_attempt)
{
    for (const HRESULT result : {E_ACCESSDENIED, HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), E_FAIL})
    {
        firewall.removeResult = result;
        EXPECT_EQ(RemoveFirewallRule(), result);
    }

    EXPECT_EQ(failures.Entries(), (Failures{{"Firewall", E_ACCESSDENIED},
                                            {"Firewall", HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)},
                                            {"Firewall", E_FAIL}}));
    EXPECT_THAT(firewall.Calls(), testing::SizeIs(3 * 7));
    EXPECT_THAT(clock.Sleeps(), IsEmpty());
}

TEST_F(FirewallTest, RemoveFirewallRule_takes_every_other_result_of_the_removal_for_done)
{
    for (const HRESULT result : {HRESULT{S_FALSE}, HRESULT{2}, HRESULT{0x7FFFFFFF}})
    {
        firewall.removeResult = result;
        EXPECT_EQ(RemoveFirewallRule(), S_OK);
    }

    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(FirewallTest, RemoveFirewallRule_goes_on_with_rules_that_come_with_another_success)
{
    firewall.rulesResult = S_FALSE;

    EXPECT_EQ(RemoveFirewallRule(), S_OK);

    EXPECT_THAT(firewall.Calls(), testing::Contains("remove Velmora Login Server"));
}

TEST_F(FirewallTest, RemoveFirewallRule_leaves_COM_to_its_caller)
{
    Fake<&CoInitializeEx> initialize = [](LPVOID, DWORD) -> HRESULT {
        ADD_FAILURE() << "COM is initialised";
        return S_OK;
    };

    EXPECT_EQ(RemoveFirewallRule(), S_OK);
}

} // namespace
