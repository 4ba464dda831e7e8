#pragma once

#include <cstdint>
#include <string_view>

namespace Reporter
{

// Times are milliseconds of a monotonic clock.
class RateLimits
{
public:
    // Applies a response: its status, and its headers "X-Sentry-Rate-Limits" and "Retry-After" or empty texts.
    void Update(unsigned status, std::string_view rateLimits, std::string_view retryAfter, std::uint64_t now);

    bool IsOpen(std::uint64_t now) const { return now >= m_closedUntil; }

private:
    void Close(std::uint64_t seconds, std::uint64_t now);

    std::uint64_t m_closedUntil = 0;
};

} // namespace Reporter
