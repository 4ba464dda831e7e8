#include "RateLimits.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string_view>

namespace
{

using namespace Reporter;

constexpr std::uint64_t c_now = 1'000'000;

// For how many seconds the server wants no events after such an answer.
std::uint64_t SecondsAfter(unsigned status, std::string_view rateLimits, std::string_view retryAfter)
{
    RateLimits limits;
    EXPECT_TRUE(limits.IsOpen(c_now));
    limits.Update(status, rateLimits, retryAfter, c_now);
    std::uint64_t milliseconds = 0;
    while (!limits.IsOpen(c_now + milliseconds))
    {
        milliseconds += 1000;
    }
    EXPECT_TRUE(milliseconds == 0 || !limits.IsOpen(c_now + milliseconds - 1));
    return milliseconds / 1000;
}

TEST(SentryRateLimitsTest, an_answer_without_limits_limits_nothing)
{
    EXPECT_EQ(SecondsAfter(200, "", ""), 0U);
    EXPECT_EQ(SecondsAfter(400, "", ""), 0U);
    EXPECT_EQ(SecondsAfter(503, "", ""), 0U);
}

TEST(SentryRateLimitsTest, too_many_requests_mean_a_minute_unless_it_says_how_long)
{
    EXPECT_EQ(SecondsAfter(429, "", ""), 60U);
    EXPECT_EQ(SecondsAfter(429, "", "7"), 7U);
    EXPECT_EQ(SecondsAfter(429, "", " 7.5 "), 7U);
    EXPECT_EQ(SecondsAfter(429, "", "Sat, 07 Mar 2026 09:05:12 GMT"), 60U);
    EXPECT_EQ(SecondsAfter(429, "", "-7"), 60U);
    EXPECT_EQ(SecondsAfter(503, "", "7"), 7U);
}

TEST(SentryRateLimitsTest, a_limit_counts_when_it_means_events)
{
    EXPECT_EQ(SecondsAfter(200, "7:error:organization", ""), 7U);
    EXPECT_EQ(SecondsAfter(200, "7:default:organization", ""), 7U);
    EXPECT_EQ(SecondsAfter(200, "7::organization:quota_exceeded", ""), 7U);
    EXPECT_EQ(SecondsAfter(200, "7:transaction;error;session:key", ""), 7U);
    EXPECT_EQ(SecondsAfter(200, "7", ""), 7U);
    EXPECT_EQ(SecondsAfter(200, "7:transaction;session:key", ""), 0U);
    EXPECT_EQ(SecondsAfter(200, "7:errors:key", ""), 0U);
}

TEST(SentryRateLimitsTest, the_longest_of_several_limits_counts)
{
    EXPECT_EQ(SecondsAfter(200, "3:error:key, 70:transaction:key,5:default;error:organization, 4::key", ""), 5U);
}

TEST(SentryRateLimitsTest, limits_go_before_the_other_header_and_the_status)
{
    EXPECT_EQ(SecondsAfter(429, "3:error:key", "7"), 3U);
    EXPECT_EQ(SecondsAfter(429, "3:transaction:key", "7"), 0U);
}

TEST(SentryRateLimitsTest, what_makes_no_sense_is_passed_over)
{
    EXPECT_EQ(SecondsAfter(200, ",,:error:,x:error:key,3:error:key,", ""), 3U);
    EXPECT_EQ(SecondsAfter(200, "garbage", ""), 0U);
}

TEST(SentryRateLimitsTest, a_limit_is_a_day_at_most)
{
    EXPECT_EQ(SecondsAfter(429, "", "999999999999999999999999"), 86400U);
    EXPECT_EQ(SecondsAfter(200, "18446744073709551615:error:key", ""), 86400U);
}

TEST(SentryRateLimitsTest, a_limit_is_not_shortened_by_a_later_one)
{
    RateLimits limits;
    limits.Update(429, "", "60", c_now);
    limits.Update(429, "", "1", c_now);
    EXPECT_FALSE(limits.IsOpen(c_now + 59'999));
    EXPECT_TRUE(limits.IsOpen(c_now + 60'000));
}

} // namespace
