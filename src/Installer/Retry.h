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

// Ten attempts, with a pause after each that fails, the last one too. What the operations of this library do by
// themselves.
inline constexpr RetryPolicy c_tenTimesPausingAfterEach{10, 1000, true};

// Ten attempts, with a pause between them. What a caller does around an operation that does not retry by itself.
inline constexpr RetryPolicy c_tenTimesPausingBetween{10, 1000, false};

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
