// The checks that the macros make of their arguments' types: what compiles here compiles with the library too.
#pragma once

#include <windows.h>

#include <type_traits>

// True when all, or at least one, of the bits are set.
#define WI_IsFlagSet(val, flag) ::wil::details::AnyFlagSet(val, flag)
#define WI_IsAnyFlagSet(val, flags) ::wil::details::AnyFlagSet(val, flags)
#define WI_IsFlagClear(val, flag) (!::wil::details::AnyFlagSet(val, flag))

// Whether a Win32 error code (DWORD, LSTATUS) tells success or failure.
#define SUCCEEDED_WIN32(win32err) ((win32err) == 0)
#define FAILED_WIN32(win32err) ((win32err) != 0)

namespace wil
{

namespace details
{

template <class T>
constexpr auto Number(T value) noexcept
{
    if constexpr (std::is_enum_v<T>)
    {
        return static_cast<std::underlying_type_t<T>>(value);
    }
    else
    {
        return value;
    }
}

template <class T, class Flags>
constexpr bool AnyFlagSet(T value, Flags flags) noexcept
{
    using Bits = std::make_unsigned_t<decltype(Number(value))>;
    return (static_cast<Bits>(Number(value)) & static_cast<Bits>(Number(flags))) != 0;
}

} // namespace details

// Gives back a condition as a bool: bool, BOOL, BOOLEAN or an object that converts to bool; nothing else compiles.
template <class T>
constexpr bool verify_bool(const T& condition) noexcept
{
    static_assert(std::is_class_v<T> || std::is_same_v<T, bool> || std::is_same_v<T, BOOL> || std::is_same_v<T, BYTE>,
                  "a bool or BOOL is expected");
    return static_cast<bool>(condition);
}

// Gives back a BOOL as it is; nothing else compiles.
template <class T>
constexpr BOOL verify_BOOL(T value) noexcept
{
    static_assert(std::is_same_v<T, BOOL>, "a BOOL is expected");
    return value;
}

// Gives back an HRESULT as it is; nothing else compiles.
template <class T>
constexpr HRESULT verify_hresult(T value) noexcept
{
    static_assert(std::is_same_v<T, HRESULT>, "an HRESULT is expected");
    return value;
}

// Gives back a Win32 error code as a DWORD: DWORD or LSTATUS; nothing else compiles.
template <class T>
constexpr DWORD verify_win32(T error) noexcept
{
    static_assert(std::is_same_v<T, DWORD> || std::is_same_v<T, LONG>, "a Win32 error code is expected");
    return static_cast<DWORD>(error);
}

} // namespace wil
