// Windows functions that fill a buffer, with the buffer grown as needed.
#pragma once

#include <combaseapi.h>

// clang-format off
#include "resource.h" // last: it has the owners for the headers before it
// clang-format on

#include <string>
#include <type_traits>

namespace wil
{

namespace details
{

std::wstring ModuleFileName(HMODULE module);
HRESULT ProcessImageName(HANDLE process, DWORD flags, unique_cotaskmem_string& result) noexcept;

} // namespace details

// The full path of a module's file; null: of the program. Throws ResultException with the code of any failure.
template <class string_type>
string_type GetModuleFileNameW(HMODULE module = nullptr)
{
    static_assert(std::is_same_v<string_type, std::wstring>, "std::wstring is the only string type there is here");
    return details::ModuleFileName(module);
}

// The full path of the file that a process was started from, in the form that the flags ask for. The handle needs the
// right to query limited information. Returns S_OK or the failure, which is recorded; the result is then as it was.
template <class string_type>
HRESULT QueryFullProcessImageNameW(HANDLE process, DWORD flags, string_type& result) noexcept
{
    static_assert(std::is_same_v<string_type, unique_cotaskmem_string>,
                  "unique_cotaskmem_string is the only string type there is here");
    return details::ProcessImageName(process, flags, result);
}

} // namespace wil
