#include "Installer/Retry.h"

#include "support/VirtualClock.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

using namespace Installer;
using Pauses = std::vector<DWORD>;

class RetryTest : public testing::Test
{
protected:
    Testing::VirtualClock clock;
    unsigned calls = 0;
};

TEST_F(RetryTest, ends_with_the_first_success_and_makes_no_pause)
{
    EXPECT_EQ(Retry(c_tenTimesPausingAfterEach, [&] { return ++calls, S_OK; }), S_OK);

    EXPECT_EQ(calls, 1U);
    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST_F(RetryTest, makes_one_attempt_and_no_pause_when_it_is_to_try_once)
{
    EXPECT_EQ(Retry(c_once, [&] { return ++calls, E_FAIL; }), E_FAIL);

    EXPECT_EQ(calls, 1U);
    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST_F(RetryTest, pauses_after_every_failure_inside_the_library)
{
    EXPECT_EQ(Retry(c_tenTimesPausingAfterEach, [&] { return ++calls, E_FAIL; }), E_FAIL);

    EXPECT_EQ(calls, 10U);
    EXPECT_EQ(clock.Sleeps(), Pauses(10, 1000));
}

TEST_F(RetryTest, pauses_between_attempts_only_around_an_operation)
{
    EXPECT_EQ(Retry(c_tenTimesPausingBetween, [&] { return ++calls, E_FAIL; }), E_FAIL);

    EXPECT_EQ(calls, 10U);
    EXPECT_EQ(clock.Sleeps(), Pauses(9, 1000));
}

TEST_F(RetryTest, stops_in_the_middle_when_an_attempt_succeeds)
{
    EXPECT_EQ(Retry(c_tenTimesPausingBetween, [&] { return ++calls == 4 ? S_OK : E_FAIL; }), S_OK);

    EXPECT_EQ(calls, 4U);
    EXPECT_EQ(clock.Sleeps(), Pauses(3, 1000));
}

TEST_F(RetryTest, returns_the_result_of_the_last_attempt)
{
    EXPECT_EQ(Retry(c_tenTimesPausingAfterEach, [&] { return ++calls == 10 ? E_ACCESSDENIED : E_FAIL; }),
              E_ACCESSDENIED);
}

TEST_F(RetryTest, takes_any_result_but_zero_for_a_failure)
{
    EXPECT_EQ(Retry(c_tenTimesPausingBetween, [&] { return ++calls, S_FALSE; }), S_FALSE);

    EXPECT_EQ(calls, 10U);
}

} // namespace
