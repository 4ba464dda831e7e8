#pragma once

#include <windows.h>

namespace Testing
{
// Whether the Windows below is Wine.
inline bool IsWine()
{
    const HMODULE library = GetModuleHandleW(L"ntdll.dll");
    return library != nullptr && GetProcAddress(library, "wine_get_version") != nullptr;
}
} // namespace Testing
