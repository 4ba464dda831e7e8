#include "Installer/Firewall.h"

#include "support/unit/FailureLog.h"
#include "support/unit/FakeFirewall.h"
#include "support/unit/VirtualClock.h"

#include <objbase.h>

#include <gmock/gmock.h>

#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char c_create[] =
    "CoCreateInstance({E2B3C97F-6AE1-41AC-817A-F6F92166D7DD}, null, 0x1, {98325047-C671-4174-8D81-DEFCD3F03186})";
constexpr char c_getRules[] = "INetFwPolicy2::get_Rules()";
constexpr char c_allocate[] = "SysAllocString(\"Velmora Login Server\")";
constexpr char c_remove[] = "INetFwRules::Remove(\"Velmora Login Server\")";
constexpr char c_releaseRules[] = "INetFwRules::Release()";
constexpr char c_releasePolicy[] = "INetFwPolicy2::Release()";
const Calls c_all{c_create, c_getRules, c_allocate, c_remove, c_releaseRules, c_releasePolicy};

// The fake firewall checks at the end that nothing of it is still held. COM is its caller's.
class FirewallTest : public testing::Test
{
protected:
    ~FirewallTest() override { EXPECT_THAT(clock.Sleeps(), IsEmpty()); }

    Journal journal;
    VirtualClock clock;
    FailureLog failures;
    FakeStrings strings{journal};
    FakeFirewall firewall{journal, strings};
    Fake<&CoInitializeEx> initialize = [](LPVOID, DWORD) -> HRESULT {
        ADD_FAILURE() << "COM is initialised";
        return S_OK;
    };
};

TEST_F(FirewallTest, RemoveFirewallRule_removes_the_rule_by_its_name)
{
    EXPECT_EQ(RemoveFirewallRule(), S_OK);

    EXPECT_EQ(journal.All(), c_all);
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(FirewallTest, RemoveFirewallRule_returns_E_FAIL_and_records_nothing_without_a_policy_object)
{
    for (const HRESULT result : {REGDB_E_CLASSNOTREG, E_ACCESSDENIED, E_OUTOFMEMORY})
    {
        journal.Fail("CoCreateInstance", result);
        EXPECT_EQ(RemoveFirewallRule(), E_FAIL);
        EXPECT_THAT(journal.Take(), ElementsAre(c_create));
    }
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(FirewallTest, RemoveFirewallRule_looks_at_the_policy_object_alone_not_at_what_its_creation_returns)
{
    HRESULT result = E_ACCESSDENIED;
    bool givesPolicy = true;
    Fake<&CoCreateInstance> create = [&](REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID id, LPVOID* object) {
        *object = nullptr;
        if (givesPolicy)
        {
            create.Hidden(classId, outer, context, id, object);
        }
        return result;
    };
    EXPECT_EQ(RemoveFirewallRule(), S_OK);
    EXPECT_EQ(journal.Take(), c_all);

    result = S_OK;
    givesPolicy = false;
    EXPECT_EQ(RemoveFirewallRule(), E_FAIL);
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(FirewallTest, RemoveFirewallRule_returns_and_records_every_call_that_fails_after_one_attempt)
{
    struct Case
    {
        const char* call;
        HRESULT result;
        Calls calls;
    };
    constexpr HRESULT c_notFound = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    std::vector<FailureLog::Entry> recorded;
    for (const auto& [call, result, calls] :
         {Case{c_getRules, E_FAIL, {c_create, c_getRules, c_releasePolicy}},
          Case{c_allocate, E_OUTOFMEMORY, {c_create, c_getRules, c_allocate, c_releaseRules, c_releasePolicy}},
          Case{c_remove, E_ACCESSDENIED, c_all}, Case{c_remove, c_notFound, c_all}, Case{c_remove, E_FAIL, c_all}})
    {
        journal.Fail(call, result, 1);
        recorded.emplace_back("Firewall", result);

        EXPECT_EQ(RemoveFirewallRule(), result);

        EXPECT_EQ(journal.Take(), calls);
        EXPECT_EQ(failures.Entries(), recorded);
    }
}

TEST_F(FirewallTest, RemoveFirewallRule_takes_every_other_result_for_a_success)
{
    journal.Fail(c_getRules, S_FALSE);
    for (const long result : {S_FALSE, 2L, 0x7FFFFFFFL})
    {
        journal.Fail(c_remove, result);
        EXPECT_EQ(RemoveFirewallRule(), S_OK);
        EXPECT_EQ(journal.Take(), c_all);
    }
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

} // namespace
