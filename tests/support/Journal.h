#pragma once

#include "support/Text.h"

#include <windows.h>

#include <concepts>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Testing
{

// What fakes were called with, as text: "Function(argument, ...)". Things that are known by their address have names;
// texts stand in quotes, resource numbers after "#".
class Journal
{
public:
    // The functions that fail from now on, by name: each of the fakes asks for its own.
    std::set<std::string> failing;

    bool Fails(const std::string& function) const { return failing.contains(function); }

    // Null is "null" from the start.
    void Name(const void* thing, const std::string& name) { m_names[thing] = name; }

    std::string NameOf(const void* thing) const
    {
        const auto name = m_names.find(thing);
        return name == m_names.end() ? "0x" + Hex(reinterpret_cast<std::uintptr_t>(thing)) : name->second;
    }

    template <class... Arguments>
    void Add(const std::string& function, const Arguments&... arguments)
    {
        std::string call = function + '(';
        ((call += Describe(arguments) + ", "), ...);
        if (sizeof...(arguments) != 0)
        {
            call.resize(call.size() - 2);
        }
        m_calls.push_back(call + ')');
    }

    const std::vector<std::string>& Calls() const { return m_calls; }

    // Those since the last time.
    std::vector<std::string> Take() { return std::exchange(m_calls, {}); }

    // Those of some functions alone.
    std::vector<std::string> CallsOf(const std::set<std::string>& functions) const
    {
        std::vector<std::string> calls;
        for (const std::string& call : m_calls)
        {
            if (functions.contains(call.substr(0, call.find('('))))
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
    std::string Describe(const std::string& text) const { return text; }
    std::string Describe(const char* text) const { return text; }
    std::string Describe(const RECT& rectangle) const
    {
        return '{' + Describe(rectangle.left) + ' ' + Describe(rectangle.top) + ' ' + Describe(rectangle.right) + ' ' +
               Describe(rectangle.bottom) + '}';
    }
    std::string Describe(std::integral auto number) const { return std::to_string(number); }
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
    std::map<const void*, std::string> m_names{{nullptr, "null"}};
    std::vector<std::string> m_calls;
};

} // namespace Testing
