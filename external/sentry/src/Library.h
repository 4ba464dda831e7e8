#pragma once

#include <windows.h>

#include <bit>

namespace Reporter
{

// Loads a library of Windows from the system's folder and nowhere else. It is not imported: a run that does not need it
// does not load it, and on a machine without it there are no reports and all else is as it is. It stays loaded.
inline HMODULE LoadSystemLibrary(const wchar_t* name) noexcept
{
    return LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
}

// Finds a function of a library; null when the library is null or has none of that name.
template <class Function>
Function FindFunction(HMODULE library, const char* name) noexcept
{
    return library ? std::bit_cast<Function>(GetProcAddress(library, name)) : nullptr;
}

} // namespace Reporter
