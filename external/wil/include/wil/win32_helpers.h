// Windows functions that fill a caller's buffer, with automatic buffer sizes.
#pragma once

#include <combaseapi.h>

// clang-format off
#include "resource.h" // after <combaseapi.h>, whose owners it then defines
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

// The path of a module, or of the executable (null). Throws ResultException on failure.
template <class string_type>
string_type GetModuleFileNameW(HMODULE module = nullptr)
{
    static_assert(std::is_same_v<string_type, std::wstring>, "std::wstring is the only string type there is here");
    return details::ModuleFileName(module);
}

// The path of a process's executable. `process` needs PROCESS_QUERY_LIMITED_INFORMATION. Returns S_OK, or the failure,
// which is recorded, with `result` unchanged.
template <class string_type>
HRESULT QueryFullProcessImageNameW(HANDLE process, DWORD flags, string_type& result) noexcept
{
    static_assert(std::is_same_v<string_type, unique_cotaskmem_string>,
                  "unique_cotaskmem_string is the only string type there is here");
    return details::ProcessImageName(process, flags, result);
}

} // namespace wil
