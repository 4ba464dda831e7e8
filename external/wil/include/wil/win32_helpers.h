// Windows functions that fill a buffer, with the buffer grown as needed.
#pragma once

#include "result_macros.h"

#include <string>

namespace wil
{

namespace details
{

std::wstring ModuleFileName(HMODULE module);

} // namespace details

// The full path of a module's file; null: of the program. Throws ResultException with the code of any failure.
template <class string_type>
string_type GetModuleFileNameW(HMODULE module = nullptr)
{
    static_assert(std::is_same_v<string_type, std::wstring>, "std::wstring is the only string type there is here");
    return details::ModuleFileName(module);
}

} // namespace wil
