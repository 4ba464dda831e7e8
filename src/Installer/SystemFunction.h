#pragma once

#include <windows.h>

#include <bit>

// Functions that not every Windows has on which this program is to say something: a program that imports one of them
// does not start where it is missing.
namespace Installer
{

// The function of that name and type in a library that every process has loaded; null where the library lacks it or is
// not loaded.
template <class Function>
Function FindSystemFunction(const wchar_t* library, const char* name) noexcept
{
    HMODULE module = GetModuleHandleW(library);
    return module == nullptr ? nullptr : std::bit_cast<Function>(GetProcAddress(module, name));
}

} // namespace Installer
