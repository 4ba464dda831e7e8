// The programs that were built together with this one.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace Testing
{
// The full path of a file that lies beside this program.
inline std::wstring BuiltFile(std::wstring_view name)
{
    std::wstring path(32'768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    // Wine cuts the prefix off the name of a program that lies on no drive.
    if (path.starts_with(L"unix\\"))
    {
        path.insert(0, L"\\\\?\\");
    }
    return path.substr(0, path.rfind(L'\\') + 1) + std::wstring(name);
}
} // namespace Testing
