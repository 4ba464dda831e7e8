#pragma once

#include "support/common/ImportTableFake.h"
#include "support/common/Text.h"

#include <windows.h>

#include <winternl.h>

#include <array>
#include <concepts>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace Testing
{

// Which call of Windows fails, counted from 1 over all functions, and how.
struct Fault
{
    std::size_t call = 0; // 0: none
    long error = 0;       // a Win32 code or an HRESULT, whichever the function gives
    bool forGood = false; // the same function, called for the same thing, then fails whenever it is called
};

// Counts the program's calls of Windows, each with what it is called for, and lets one of them fail.
class FaultInjector
{
public:
    struct Call
    {
        std::string function;
        std::string subject;
        const std::vector<long>* errors; // that it may give
    };

    explicit FaultInjector(const Fault& fault) : m_fault(fault) {}

    // The calls so far; kept only when no fault is wanted.
    const std::vector<Call>& Calls() const { return m_calls; }

    // The function that failed, and what it was called for; empty when the fault was not met.
    const std::string& Function() const { return m_function; }
    const std::string& Subject() const { return m_subject; }

    // A call of the program's. Returns the error that it is to give, if so. Calls that a fake itself makes are not the
    // program's: see Inside.
    std::optional<long> Enter(const char* function, const std::vector<long>& errors,
                              const std::function<std::string()>& subject)
    {
        if (m_depth != 0)
        {
            return std::nullopt;
        }
        ++m_count;
        if (m_fault.call == 0)
        {
            m_calls.push_back({function, subject(), &errors});
            return std::nullopt;
        }
        if (m_count == m_fault.call)
        {
            m_function = function;
            m_subject = subject();
            return m_fault.error;
        }
        const bool isAgain =
            m_fault.forGood && m_count > m_fault.call && m_function == function && m_subject == subject();
        return isAgain ? std::optional(m_fault.error) : std::nullopt;
    }

    bool IsOutside() const { return m_depth == 0; }

    // Lives while a fake does what a function of Windows would do.
    class Inside
    {
    public:
        explicit Inside(FaultInjector& injector) : m_injector(injector) { ++m_injector.m_depth; }
        ~Inside() { --m_injector.m_depth; }
        Inside(const Inside&) = delete;
        Inside& operator=(const Inside&) = delete;

    private:
        FaultInjector& m_injector;
    };

    // What handles stand for: what was named when they were opened.
    void Name(const void* handle, const std::string& subject) { m_names[handle] = subject; }
    std::string NameOf(const void* handle) const
    {
        const auto name = m_names.find(handle);
        return name == m_names.end() ? std::string() : name->second;
    }

private:
    Fault m_fault;
    std::size_t m_count = 0;
    unsigned m_depth = 0;
    std::vector<Call> m_calls;
    std::string m_function;
    std::string m_subject;
    std::map<const void*, std::string> m_names;
};

// How a function shows that it failed, where that is not the usual way: a status comes back as it is, everything else
// is a zero with the last error set.
struct FailureStyle
{
    std::uintptr_t result = 0;     // comes back instead of the zero
    bool doesItAllTheSame = false; // for the functions that close: what they close is gone even so
    bool isAboutAnything = false;  // calls are not told apart by what they are for
};

// While it lives, a function of Windows is counted and can fail. It goes in front of all other fakes of the function.
template <auto Function, class Type = decltype(Function)>
class Faulty;

template <auto Function, class Result, class... Arguments>
class Faulty<Function, Result(WINAPI*)(Arguments...)>
{
public:
    Faulty(FaultInjector& injector, const std::vector<long>& errors, const FailureStyle& style = {})
        : m_injector(injector),
          m_errors(errors),
          m_style(style)
    {}
    Faulty(const Faulty&) = delete;
    Faulty& operator=(const Faulty&) = delete;

    static const char* Name()
    {
        static constexpr auto name = Details::NameOf<Function>();
        return name.data();
    }

private:
    template <class Handle>
    static constexpr bool c_isHandle = std::same_as<Handle, HANDLE> || std::same_as<Handle, HKEY> ||
                                       std::same_as<Handle, SC_HANDLE> || std::same_as<Handle, HWND>;

    template <class Argument>
    std::string Describe(const Argument& argument) const
    {
        if constexpr (std::same_as<Argument, LPCWSTR>)
        {
            return argument == nullptr ? "" : IS_INTRESOURCE(argument) ? "#" : Narrow(argument);
        }
        else if constexpr (c_isHandle<Argument>)
        {
            return m_injector.NameOf(argument);
        }
        else if constexpr (std::same_as<Argument, POBJECT_ATTRIBUTES>)
        {
            const UNICODE_STRING& name = *argument->ObjectName;
            return m_injector.NameOf(argument->RootDirectory) + '\\' +
                   Narrow({name.Buffer, name.Length / sizeof(wchar_t)});
        }
        else if constexpr (std::same_as<Argument, GUID>)
        {
            return Hex(argument.Data1);
        }
        else if constexpr (std::integral<Argument>)
        {
            return Hex(static_cast<std::uint64_t>(argument));
        }
        else
        {
            return {};
        }
    }

    std::string Subject(const Arguments&... arguments) const
    {
        std::string subject;
        if (!m_style.isAboutAnything)
        {
            [[maybe_unused]] const auto add = [&](const std::string& part) {
                subject += (subject.empty() || part.empty() ? "" : " ") + part;
            };
            (add(Describe<std::remove_cvref_t<Arguments>>(arguments)), ...);
        }
        return subject;
    }

    // Remembers what a handle stands for that came back, as the result or through an argument.
    void NameOutcome(Result result, Arguments... arguments) const
    {
        const std::string subject = Subject(arguments...);
        if constexpr (c_isHandle<Result>)
        {
            m_injector.Name(result, subject);
        }
        const auto nameArgument = [&](auto argument) {
            if constexpr (std::same_as<decltype(argument), HKEY*> || std::same_as<decltype(argument), HANDLE*>)
            {
                if (argument != nullptr)
                {
                    m_injector.Name(*argument, subject);
                }
            }
        };
        (nameArgument(arguments), ...);
    }

    Result Fail(long error) const
    {
        if constexpr (std::same_as<Result, LONG>)
        {
            return error;
        }
        else
        {
            SetLastError(static_cast<DWORD>(error));
            if constexpr (std::is_pointer_v<Result>)
            {
                return reinterpret_cast<Result>(m_style.result);
            }
            else
            {
                return static_cast<Result>(m_style.result);
            }
        }
    }

    Result Call(Arguments... arguments)
    {
        const auto error = m_injector.Enter(Name(), m_errors, [&] { return Subject(arguments...); });
        if (error && !m_style.doesItAllTheSame)
        {
            return Fail(*error);
        }
        const bool isThePrograms = m_injector.IsOutside();
        const FaultInjector::Inside inside(m_injector);
        Result result = m_fake.Hidden(arguments...);
        if (!isThePrograms)
        {
            return result;
        }
        if (error)
        {
            return Fail(*error);
        }
        if constexpr (c_isHandle<Result> || (std::same_as<Arguments, HKEY*> || ...) ||
                      (std::same_as<Arguments, HANDLE*> || ...))
        {
            const DWORD lastError = GetLastError();
            NameOutcome(result, arguments...);
            SetLastError(lastError);
        }
        return result;
    }

    FaultInjector& m_injector;
    const std::vector<long>& m_errors;
    FailureStyle m_style;
    Fake<Function> m_fake = [this](Arguments... arguments) -> Result { return Call(arguments...); };
};

} // namespace Testing
