#pragma once

#include <array>
#include <string>

namespace Reporter
{

// "2026-03-07T09:05:12.345Z": always of this length.
using Timestamp = std::array<char, 24>;

// The time now, in UTC. Needs no memory, so it works in a crash too.
Timestamp TimestampNow() noexcept;

inline std::string ToText(const Timestamp& timestamp)
{
    return {timestamp.begin(), timestamp.end()};
}

} // namespace Reporter
