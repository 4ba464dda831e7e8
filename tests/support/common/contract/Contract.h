// The documented preconditions of the functions of Windows that the program calls. Each is judged in every test: a
// contract stands in the program's import table before the function, and before the fake that a test puts there.
//     const Contract<&CloseHandle> s_closeHandle = [](HANDLE handle) {
//         return Verdict{{handle != nullptr, "the handle is valid"}};
//     };
// A rule is taken from the function's own page of Windows' documentation; where it is from another page, its text
// begins with that page's title. What the documentation lets a call do counts as kept, whether or not it makes sense.
#pragma once

#include "support/common/ImportTableFake.h"

#include <windows.h>

#include <atomic>
#include <initializer_list>
#include <type_traits>

namespace Testing
{

struct Rule
{
    bool isKept;
    const char* text;
};

// What a contract says about a call: the first rule that it breaks. All conditions are evaluated.
class Verdict
{
public:
    explicit(false) Verdict(std::initializer_list<Rule> rules) noexcept;
    // What it says when these rules are added to a function's own ones.
    Verdict& Add(std::initializer_list<Rule> rules) noexcept;

    // Null when the call keeps them all.
    const char* BrokenRule() const { return m_broken; }

    // Sees all rules of each verdict, and which ones were added, for the test of the contracts.
    using Observer = void (*)(std::initializer_list<Rule> rules, bool areAdded);
    static void Observe(Observer observer);

private:
    const char* m_broken = nullptr;
};

// Called with each broken rule, on the thread that breaks it. It may call Windows: that is not judged.
using ViolationReport = void (*)(const char* function, const char* rule);

// Puts the contracts into the program's import table. What is put there later, such as a fake, comes after them.
void JudgeCalls(ViolationReport report);

// While one lives, the program runs from its start to its end: what it has to initialize is judged, too. What was known
// to be open is forgotten.
class WholeRun
{
public:
    WholeRun();
    WholeRun(const WholeRun&) = delete;
    WholeRun& operator=(const WholeRun&) = delete;
    ~WholeRun();

    static bool IsUnderWay();
};

// What the rules are written with.

template <class Flags>
constexpr bool HasOnly(Flags flags, std::type_identity_t<Flags> allowed)
{
    return (flags & ~allowed) == 0;
}

template <class Flags>
constexpr bool HasAll(Flags flags, std::type_identity_t<Flags> wanted)
{
    return (flags & wanted) == wanted;
}

template <class Value, class... Allowed>
constexpr bool IsOneOf(const Value& value, const Allowed&... allowed)
{
    return ((value == static_cast<Value>(allowed)) || ...);
}

// Only one of two may be set.
template <class Flags>
constexpr bool HasAtMostOneOf(Flags flags, std::type_identity_t<Flags> choices)
{
    return ((flags & choices) & ((flags & choices) - 1)) == 0;
}

// A buffer of that size, or none of size 0.
constexpr bool IsBuffer(const void* buffer, unsigned long long size)
{
    return buffer != nullptr || size == 0;
}

// An address that a value of that size may have.
inline bool IsAligned(const void* address, std::size_t alignment)
{
    return reinterpret_cast<ULONG_PTR>(address) % alignment == 0;
}

inline bool IsResourceId(const void* name)
{
    return (reinterpret_cast<ULONG_PTR>(name) >> 16) == 0;
}

namespace Details
{

// Windows' last error, which must not be changed by what looks at a call.
class KeptLastError
{
public:
    KeptLastError() : m_error(GetLastError()) {}
    KeptLastError(const KeptLastError&) = delete;
    KeptLastError& operator=(const KeptLastError&) = delete;
    ~KeptLastError() { SetLastError(m_error); }

private:
    DWORD m_error;
};

class AnyContract
{
public:
    AnyContract(const char* name, void* call, void** next);

    // After a call: the first call of a delay-loaded function has put that into the slot, in the contract's place.
    void StandAgain() const
    {
        if (void* const slot = m_delayedSlot)
        {
            ReturnTo(slot);
        }
    }

private:
    friend void Testing::JudgeCalls(ViolationReport report);

    void ReturnTo(void* slot) const;

    const char* m_name;
    void* m_call;
    void** m_next;
    mutable std::atomic<void*> m_delayedSlot = nullptr; // until the function is in it
    AnyContract* m_following;
};

void Report(const char* function, const char* rule);

template <class Result, class... Arguments>
struct AfterCall
{
    using Type = void (*)(Result, Arguments...);
};
template <class... Arguments>
struct AfterCall<void, Arguments...>
{
    using Type = void (*)(Arguments...);
};

} // namespace Details

// The contract of one function: the rules of a call, and what a call changes for later ones. What the function frees is
// noted before the call: afterwards another thread may have got the same address.
template <auto Function, class Type = decltype(Function)>
class Contract;

template <auto Function, class Result, class... Arguments>
class Contract<Function, Result(WINAPI*)(Arguments...)>
{
public:
    using Rules = Verdict (*)(Arguments...);
    using After = typename Details::AfterCall<Result, Arguments...>::Type;
    using Before = void (*)(Arguments...);

    template <class Lambda>
        requires std::is_convertible_v<Lambda, Rules>
    explicit(false) Contract(Lambda rules, After after = nullptr, Before before = nullptr)
        : m_contract(c_name.data(), reinterpret_cast<void*>(&Call), reinterpret_cast<void**>(&s_next))
    {
        s_contract = &m_contract;
        s_rules = rules;
        s_after = after;
        s_before = before;
    }

    static Verdict Judge(Arguments... arguments) { return s_rules(arguments...); }

private:
    using Pointer = Result(WINAPI*)(Arguments...);

    static constexpr auto c_name = Details::NameOf<Function>();

    static Result WINAPI Call(Arguments... arguments)
    {
        {
            const Details::KeptLastError kept;
            if (const char* const broken = s_rules(arguments...).BrokenRule())
            {
                Details::Report(c_name.data(), broken);
            }
            if (s_before != nullptr)
            {
                s_before(arguments...);
            }
        }
        if constexpr (std::is_void_v<Result>)
        {
            s_next(arguments...);
            const Details::KeptLastError kept;
            s_contract->StandAgain();
            if (s_after != nullptr)
            {
                s_after(arguments...);
            }
        }
        else
        {
            const Result result = s_next(arguments...);
            const Details::KeptLastError kept;
            s_contract->StandAgain();
            if (s_after != nullptr)
            {
                s_after(result, arguments...);
            }
            return result;
        }
    }

    Details::AnyContract m_contract;
    static constinit inline const Details::AnyContract* s_contract = nullptr;
    static constinit inline Pointer s_next = nullptr;
    static constinit inline Rules s_rules = nullptr;
    static constinit inline After s_after = nullptr;
    static constinit inline Before s_before = nullptr;
};

} // namespace Testing
