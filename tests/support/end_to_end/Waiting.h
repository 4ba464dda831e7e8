// Waits for what cannot be waited for as an object.
#pragma once

#include <windows.h>

#include <chrono>

namespace Testing
{
// How long a test waits for something that takes next to no time unless it never comes.
inline constexpr std::chrono::seconds c_patience{30};

// Whether the condition becomes true before patience is at an end; it is asked every few milliseconds, and a last time
// then.
template <typename Condition>
bool BecomesTrue(Condition condition, std::chrono::milliseconds patience = c_patience)
{
    constexpr DWORD c_lookEvery = 2; // milliseconds
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > end)
        {
            return condition();
        }
        Sleep(c_lookEvery);
    }
    return true;
}
} // namespace Testing
