#pragma once

#include "support/common/Text.h"

#include <windows.h>

#include <objbase.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
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

// What stands in hexadecimal: flags, rights, attributes.
inline std::string Mask(DWORD flags)
{
    return "0x" + Hex(flags);
}

// What a fake ends with: sets the last error. Returns whether that is none.
inline bool Succeeds(DWORD error)
{
    SetLastError(error);
    return error == ERROR_SUCCESS;
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

// What fakes were called with, as text: "Function(argument, ...)", with the names that Windows gives its functions.
// Things that are known by their address have names; texts stand in quotes, resource numbers after "#". It is also the
// one place where a test plans failures; what a planned one looks like is the fake's matter.
class Journal
{
public:
    // Lets calls fail the next `times` times: those that read so, or, for a function's name alone, every call of it.
    void Fail(const std::string& call, long error = ERROR_ACCESS_DENIED, unsigned times = ~0U)
    {
        m_failures[call] = {error, times};
    }

    // Whether a call is to fail, as Fail has it.
    bool WillFail(const std::string& call) const
    {
        const auto failure = m_failures.find(call);
        return failure != m_failures.end() && failure->second.times != 0;
    }

    // Is told of every call when it is made.
    std::function<void(const std::string& call)> onCall = [](const std::string&) {};

    // Null is "null" from the start.
    void Name(const void* thing, const std::string& name) { m_names[thing] = name; }

    std::string NameOf(const void* thing) const
    {
        const auto name = m_names.find(thing);
        return name == m_names.end() ? "0x" + Hex(reinterpret_cast<std::uintptr_t>(thing)) : name->second;
    }

    // Notes a call. Returns the error that it is to fail with, or ERROR_SUCCESS.
    template <class... Arguments>
    DWORD Add(const std::string& function, const Arguments&... arguments)
    {
        std::string call = function + '(';
        ((call += Describe(arguments) + ", "), ...);
        if (sizeof...(arguments) != 0)
        {
            call.resize(call.size() - 2);
        }
        m_calls.push_back(call + ')');
        onCall(m_calls.back());
        const DWORD error = TakeFailure(m_calls.back());
        return error == ERROR_SUCCESS ? TakeFailure(function) : error;
    }

    const Calls& All() const { return m_calls; }

    // Those since the last time.
    Calls Take() { return std::exchange(m_calls, {}); }

    // Those that read so, or, for a function's name alone, every call of it.
    Calls CallsOf(const std::set<std::string>& wanted) const
    {
        Calls calls;
        for (const std::string& call : m_calls)
        {
            if (wanted.contains(call) || wanted.contains(call.substr(0, call.find('('))))
            {
                calls.push_back(call);
            }
        }
        return calls;
    }

    std::string Describe(const wchar_t* text) const
    {
        if (text == nullptr)
        {
            return "null";
        }
        return IS_INTRESOURCE(text) ? '#' + std::to_string(reinterpret_cast<std::uintptr_t>(text))
                                    : '"' + Narrow(text) + '"';
    }
    std::string Describe(REFGUID id) const
    {
        wchar_t text[39]{};
        StringFromGUID2(id, text, static_cast<int>(std::size(text)));
        return Narrow(text);
    }
    std::string Describe(const std::wstring& text) const { return Describe(text.c_str()); }
    std::string Describe(const std::string& text) const { return text; }
    std::string Describe(const char* text) const { return text; }
    std::string Describe(const RECT& rectangle) const
    {
        return '{' + Describe(rectangle.left) + ' ' + Describe(rectangle.top) + ' ' + Describe(rectangle.right) + ' ' +
               Describe(rectangle.bottom) + '}';
    }
    std::string Describe(const RECT* rectangle) const { return rectangle == nullptr ? "null" : Describe(*rectangle); }
    std::string Describe(std::integral auto number) const { return std::to_string(number); }
    template <class Enumeration>
    std::string Describe(Enumeration value) const
        requires std::is_enum_v<Enumeration>
    {
        return std::to_string(static_cast<std::underlying_type_t<Enumeration>>(value));
    }
    std::string Describe(std::floating_point auto number) const
    {
        char text[32];
        std::snprintf(text, std::size(text), "%.9g", static_cast<double>(number));
        return text;
    }
    template <class Thing>
    std::string Describe(Thing* thing) const
        requires(!std::same_as<std::remove_const_t<Thing>, wchar_t> && !std::same_as<std::remove_const_t<Thing>, char>)
    {
        return NameOf(thing);
    }

private:
    struct Failure
    {
        long error;
        unsigned times;
    };

    DWORD TakeFailure(const std::string& call)
    {
        if (!WillFail(call))
        {
            return ERROR_SUCCESS;
        }
        Failure& failure = m_failures.at(call);
        --failure.times;
        return static_cast<DWORD>(failure.error);
    }

    std::map<const void*, std::string> m_names{{nullptr, "null"}};
    std::map<std::string, Failure> m_failures;
    Calls m_calls;
};

} // namespace Testing
