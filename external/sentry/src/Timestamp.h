#pragma once

#include <array>
#include <string>

namespace Reporter
{

// "2026-03-07T09:05:12.345Z"
using Timestamp = std::array<char, 24>;

// Does not allocate: used in a crash.
Timestamp TimestampNow() noexcept;

inline std::string ToText(const Timestamp& timestamp)
{
    return {timestamp.begin(), timestamp.end()};
}

} // namespace Reporter
