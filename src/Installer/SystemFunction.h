#pragma once

#include <windows.h>

#include <bit>

// Functions that older versions of Windows lack. They are looked up at run time: a missing import would keep the
// program from starting, and from reporting that Windows is too old.
namespace Installer
{

// GetProcAddress in a library that is already loaded; null when the library or the function is missing.
template <class Function>
Function FindSystemFunction(const wchar_t* library, const char* name) noexcept
{
    HMODULE module = GetModuleHandleW(library);
    return module == nullptr ? nullptr : std::bit_cast<Function>(GetProcAddress(module, name));
}

} // namespace Installer
