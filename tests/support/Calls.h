#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace Testing
{

// What was called, in its order.
using Calls = std::vector<std::string>;

// Joins pieces: single calls and lists of them.
inline Calls operator+(Calls first, const Calls& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

inline Calls operator+(Calls first, const std::string& second)
{
    first.push_back(second);
    return first;
}

inline Calls operator*(int times, const Calls& piece)
{
    Calls calls;
    for (int i = 0; i < times; ++i)
    {
        calls = std::move(calls) + piece;
    }
    return calls;
}

// Says at which call two lists part.
inline ::testing::AssertionResult AreEqual(const Calls& actual, const Calls& expected)
{
    const auto [is, shouldBe] = std::ranges::mismatch(actual, expected);
    if (is == actual.end() && shouldBe == expected.end())
    {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "call " << is - actual.begin() << " is \""
                                         << (is == actual.end() ? "" : *is) << "\" instead of \""
                                         << (shouldBe == expected.end() ? "" : *shouldBe) << "\"";
}

} // namespace Testing
