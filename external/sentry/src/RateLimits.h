#pragma once

#include <cstdint>
#include <string_view>

namespace Reporter
{

// Until when the server wants no more events. Times are milliseconds of a clock that never goes back.
class RateLimits
{
public:
    // Takes in an answer: its status and, when it has them, its headers "X-Sentry-Rate-Limits" and "Retry-After".
    void Update(unsigned status, std::string_view rateLimits, std::string_view retryAfter, std::uint64_t now);

    bool IsOpen(std::uint64_t now) const { return now >= m_closedUntil; }

private:
    void Close(std::uint64_t seconds, std::uint64_t now);

    std::uint64_t m_closedUntil = 0;
};

} // namespace Reporter
