#include "Installer/Retry.h"

#include "support/unit/VirtualClock.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

using namespace Installer;
using Pauses = std::vector<DWORD>;

TEST(RetryTest, Tries_until_the_first_success_and_pauses_after_failures)
{
    struct Case
    {
        RetryPolicy policy;
        unsigned successAt; // 0: never
        unsigned attempts;
        std::size_t pauses;
    };
    const Case cases[] = {
        {c_once, 0, 1, 0},
        {c_tenTimesPausingAfterEach, 1, 1, 0},
        {c_tenTimesPausingAfterEach, 0, 10, 10}, // inside the library
        {c_tenTimesPausingBetween, 0, 10, 9},    // around an operation
        {c_tenTimesPausingBetween, 4, 4, 3},
        {c_tenTimesPausingBetween, 10, 10, 9},
    };
    for (const Case& each : cases)
    {
        const Testing::VirtualClock clock;
        unsigned attempts = 0;

        EXPECT_EQ(Retry(each.policy, [&] { return ++attempts == each.successAt ? S_OK : E_FAIL; }),
                  each.successAt == 0 ? E_FAIL : S_OK);

        EXPECT_EQ(attempts, each.attempts);
        EXPECT_EQ(clock.Sleeps(), Pauses(each.pauses, 1000));
    }
}

TEST(RetryTest, Returns_the_result_of_the_last_attempt_and_takes_any_but_zero_for_a_failure)
{
    const Testing::VirtualClock clock;
    unsigned attempts = 0;

    EXPECT_EQ(Retry(c_tenTimesPausingAfterEach, [&] { return ++attempts == 10 ? S_FALSE : E_FAIL; }), S_FALSE);
    EXPECT_EQ(Retry(c_tenTimesPausingBetween, [&] { return ++attempts == 20 ? E_ACCESSDENIED : S_FALSE; }),
              E_ACCESSDENIED);

    EXPECT_EQ(attempts, 20U);
}

} // namespace
