#pragma once

#include <windows.h>

namespace Installer
{

// How often an operation is tried, and how long the calling thread sleeps in between.
struct RetryPolicy
{
    unsigned attempts;
    DWORD pauseMilliseconds;
    bool pausesAfterLastAttempt;
};

inline constexpr RetryPolicy c_once{1, 0, false};

// What the operations of this library do on their own: the machine gets a second to settle after every failure, the
// last one included.
inline constexpr RetryPolicy c_tenTimes{10, 1000, true};

// What a caller does around an operation that does not retry by itself: it pauses between attempts only.
inline constexpr RetryPolicy c_tenAttempts{10, 1000, false};

// Calls operation() until it returns S_OK or the attempts are used up. Returns the last result.
template <class Operation>
HRESULT Retry(const RetryPolicy& policy, Operation operation)
{
    for (unsigned attempt = 1;; ++attempt)
    {
        const HRESULT result = operation();
        const bool isLast = attempt >= policy.attempts;
        if (result == S_OK)
        {
            return result;
        }
        if (!isLast || policy.pausesAfterLastAttempt)
        {
            Sleep(policy.pauseMilliseconds);
        }
        if (isLast)
        {
            return result;
        }
    }
}

} // namespace Installer
