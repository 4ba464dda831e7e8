#pragma once

#include <windows.h>

#include <array>
#include <functional>
#include <string_view>
#include <type_traits>
#include <utility>

// Replaces Windows functions in a test program by patching the program's own import address table: the production code
// calls Windows directly and needs no seam for it. Works the same on every Windows.
namespace Testing
{

// Where this program keeps the address of the imported function `name`; nothing when the program does not import it.
// The linker does not align these places.
void* FindImportSlot(std::string_view name) noexcept;

// The same for a function whose library the program loads at its first call; nothing for any other. Until that call the
// slot holds what loads the library; the call puts the function there.
void* FindDelayedSlot(std::string_view name) noexcept;

// The same for a function that the program must import: throws std::logic_error when it does not.
void* ImportSlot(std::string_view name);

// Puts a function into an import slot for good, and lets `next`, which it calls, hold what was there: from now on the
// others find `next` as the slot.
void StandBefore(void* slot, void* function, void** next);

// Read and write the address that an import slot holds.
void* GetImportSlot(const void* slot);
void SetImportSlot(void* slot, void* function);

namespace Details
{

template <auto Function>
consteval auto NameOf()
{
    constexpr std::string_view text = __PRETTY_FUNCTION__;
    constexpr auto end = text.find_first_of(";]", text.find("Function = "));
    constexpr auto begin = text.find_last_of(" &:", end - 1) + 1; // less the namespaces
    constexpr auto length = end - begin;
    std::array<char, length + 1> name{};
    text.copy(name.data(), length, begin);
    return name;
}

} // namespace Details

// While a Fake<&SomeFunction> lives, the program's calls of that function go to its body:
//     Fake<&Sleep> sleep = [&](DWORD milliseconds) { sleeps.push_back(milliseconds); };
// A later fake of the same function hides an earlier one until it goes. Real() calls Windows.
template <auto Function, class Type = decltype(Function)>
class Fake;

template <auto Function, class Result, class... Arguments>
class Fake<Function, Result(WINAPI*)(Arguments...)>
{
public:
    template <class Body>
        requires std::is_invocable_r_v<Result, Body&, Arguments...>
    explicit(false) Fake(Body body) : m_body(std::move(body)),
                                      m_outer(std::exchange(s_current, this))
    {
        if (!m_outer)
        {
            s_real = reinterpret_cast<Pointer>(GetImportSlot(Slot()));
            SetImportSlot(Slot(), reinterpret_cast<void*>(&Call));
        }
    }

    Fake(const Fake&) = delete;
    Fake& operator=(const Fake&) = delete;

    ~Fake()
    {
        if (!m_outer)
        {
            SetImportSlot(Slot(), reinterpret_cast<void*>(s_real));
        }
        s_current = m_outer;
    }

    static Result Real(Arguments... arguments) { return (s_current == nullptr ? Function : s_real)(arguments...); }

    // Calls what this fake hides: the earlier one, or Windows.
    Result Hidden(Arguments... arguments) const
    {
        return m_outer ? m_outer->m_body(arguments...) : s_real(arguments...);
    }

private:
    using Pointer = Result(WINAPI*)(Arguments...);

    static Result WINAPI Call(Arguments... arguments) { return s_current->m_body(arguments...); }

    static void* Slot()
    {
        static void* const slot = ImportSlot(Details::NameOf<Function>().data());
        return slot;
    }

    std::function<Result(Arguments...)> m_body;
    Fake* m_outer;
    static constinit inline Fake* s_current = nullptr;
    static constinit inline Pointer s_real = nullptr;
};

// The body of a fake that always fails as most functions do: with that last error, and 0 or another result.
template <class Result = int>
auto Fails(DWORD error, Result result = {})
{
    return [=](auto...) {
        SetLastError(error);
        return result;
    };
}

} // namespace Testing
