#pragma once

#include <windows.h>

#include <bit>

namespace Reporter
{

// Loads a library of Windows from the system folder. Not imported, so that only reports need it.
inline HMODULE LoadSystemLibrary(const wchar_t* name) noexcept
{
    return LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
}

// Null without the library or the function.
template <class Function>
Function FindFunction(HMODULE library, const char* name) noexcept
{
    return library ? std::bit_cast<Function>(GetProcAddress(library, name)) : nullptr;
}

} // namespace Reporter
