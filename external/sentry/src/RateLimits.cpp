#include "RateLimits.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>
#include <system_error>

namespace Reporter
{

namespace
{

constexpr unsigned c_tooManyRequests = 429;

// Without a number of seconds.
constexpr std::uint64_t c_defaultSeconds = 60;

constexpr std::uint64_t c_longestSeconds = 60ULL * 60 * 24;

std::string_view Trim(std::string_view text)
{
    const auto begin = text.find_first_not_of(" \t");
    return begin == std::string_view::npos ? std::string_view()
                                           : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

// Takes what stands before a separator off the text, with the separator.
std::string_view TakeUntil(std::string_view& text, char separator)
{
    const auto end = text.find(separator);
    const std::string_view taken = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return Trim(taken);
}

std::optional<std::uint64_t> ParseSeconds(std::string_view text)
{
    text = Trim(text);
    std::uint64_t seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error == std::errc::result_out_of_range)
    {
        return c_longestSeconds;
    }
    // A fraction is cut off.
    if (error != std::errc() || (end != text.data() + text.size() && *end != '.'))
    {
        return std::nullopt;
    }
    return std::min(seconds, c_longestSeconds);
}

// Whether a list of categories, separated by semicolons, covers events; an empty one covers everything.
bool MeansEvents(std::string_view categories)
{
    if (categories.empty())
    {
        return true;
    }
    while (!categories.empty())
    {
        const std::string_view category = TakeUntil(categories, ';');
        if (category == "error" || category == "default")
        {
            return true;
        }
    }
    return false;
}

} // namespace

void RateLimits::Update(unsigned status, std::string_view rateLimits, std::string_view retryAfter, std::uint64_t now)
{
    if (!rateLimits.empty())
    {
        while (!rateLimits.empty())
        {
            std::string_view limit = TakeUntil(rateLimits, ',');
            const auto seconds = ParseSeconds(TakeUntil(limit, ':'));
            if (seconds && MeansEvents(TakeUntil(limit, ':')))
            {
                Close(*seconds, now);
            }
        }
    }
    else if (!retryAfter.empty())
    {
        Close(ParseSeconds(retryAfter).value_or(c_defaultSeconds), now);
    }
    else if (status == c_tooManyRequests)
    {
        Close(c_defaultSeconds, now);
    }
}

void RateLimits::Close(std::uint64_t seconds, std::uint64_t now)
{
    m_closedUntil = std::max(m_closedUntil, now + seconds * 1000);
}

} // namespace Reporter
