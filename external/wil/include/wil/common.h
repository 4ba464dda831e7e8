// The macros' type checks: what compiles here compiles with the library too.
#pragma once

#include <windows.h>

#include <type_traits>

namespace wil
{

// Accepts bool, BOOL, BOOLEAN and classes that convert to bool.
template <class T>
constexpr bool verify_bool(const T& condition) noexcept
{
    static_assert(std::is_class_v<T> || std::is_same_v<T, bool> || std::is_same_v<T, BOOL> || std::is_same_v<T, BYTE>,
                  "a bool or BOOL is expected");
    return static_cast<bool>(condition);
}

// Accepts BOOL only.
template <class T>
constexpr BOOL verify_BOOL(T value) noexcept
{
    static_assert(std::is_same_v<T, BOOL>, "a BOOL is expected");
    return value;
}

// Accepts HRESULT only.
template <class T>
constexpr HRESULT verify_hresult(T value) noexcept
{
    static_assert(std::is_same_v<T, HRESULT>, "an HRESULT is expected");
    return value;
}

// Accepts DWORD and LSTATUS.
template <class T>
constexpr DWORD verify_win32(T error) noexcept
{
    static_assert(std::is_same_v<T, DWORD> || std::is_same_v<T, LONG>, "a Win32 error code is expected");
    return static_cast<DWORD>(error);
}

} // namespace wil
