#include "RateLimits.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace
{

using namespace Reporter;

constexpr std::uint64_t c_now = 1'000'000;

struct Response
{
    unsigned status;
    const char* rateLimits;
    const char* retryAfter;
    unsigned seconds; // that the server wants no events for
};

constexpr Response c_responses[] = {
    {200, "", "", 0},
    {400, "", "", 0},
    {503, "", "", 0},
    {503, "", "7", 7},
    {429, "", "", 60},
    {429, "", "7", 7},
    {429, "", " 7 ", 7},
    {429, "", "7.5", 7},
    {429, "", "Sat, 07 Mar 2026 09:05:12 GMT", 60},
    {429, "", "-7", 60},
    {429, "", "999999999999999999999999", 86400}, // a day at most
    {200, "18446744073709551615:error:key", "", 86400},
    {200, "7", "", 7},
    {200, "7:error:organization", "", 7},
    {200, "7:default:organization", "", 7},
    {200, "7::organization:quota_exceeded", "", 7},
    {200, "7:transaction;error;session:key", "", 7},
    {200, "7:transaction;session:key", "", 0},
    {200, "7:errors:key", "", 0},
    {200, "3:error:key, 70:transaction:key,5:default;error:organization, 4::key", "", 5}, // the longest
    {429, "3:error:key", "7", 3}, // goes before the other header and the status
    {429, "3:transaction:key", "7", 0},
    {200, ",,:error:,x:error:key,3:error:key,", "", 3},
    {200, "garbage", "", 0},
};

TEST(SentryRateLimitsTest, Follow_from_the_response)
{
    for (const Response& response : c_responses)
    {
        RateLimits limits;
        EXPECT_TRUE(limits.IsOpen(c_now));
        limits.Update(response.status, response.rateLimits, response.retryAfter, c_now);
        const std::uint64_t end = c_now + response.seconds * 1000ULL;
        EXPECT_TRUE(limits.IsOpen(end)) << response.rateLimits << response.retryAfter;
        EXPECT_EQ(limits.IsOpen(end - 1), response.seconds == 0) << response.rateLimits << response.retryAfter;
    }
}

TEST(SentryRateLimitsTest, Are_not_shortened_by_a_later_response)
{
    RateLimits limits;
    limits.Update(429, "", "60", c_now);
    limits.Update(429, "", "1", c_now);
    EXPECT_FALSE(limits.IsOpen(c_now + 59'999));
    EXPECT_TRUE(limits.IsOpen(c_now + 60'000));
}

} // namespace
