#pragma once

#include <windows.h>

namespace Installer
{

// How often an operation is attempted, and how long the calling thread sleeps after a failed attempt.
struct RetryPolicy
{
    unsigned attempts;
    DWORD pauseMilliseconds;
    bool pausesAfterLastAttempt;
};

inline constexpr RetryPolicy c_once{1, 0, false};

// Of the library's operations that retry by themselves: they pause after the last failure too.
inline constexpr RetryPolicy c_tenTimesPausingAfterEach{10, 1000, true};

// For callers of operations that make one attempt.
inline constexpr RetryPolicy c_tenTimesPausingBetween{10, 1000, false};

// Calls operation() until it returns S_OK or the attempts are exhausted. Returns the last result.
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
