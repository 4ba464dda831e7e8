// Goes through the files of a folder.
#pragma once

#include "support/end_to_end/Owners.h"

#include <windows.h>

#include <string>
#include <string_view>

namespace Testing
{
// A path that may be longer than 260 characters and is taken as it is, with names that Windows would normalize.
inline std::wstring AnyLength(std::wstring_view path)
{
    return LR"(\\?\)" + std::wstring(path);
}

// Calls visit with the data of everything that the pattern finds. Returns an error number when there is no search.
template <typename Visit>
DWORD ForEachFound(const std::wstring& pattern, Visit visit)
{
    WIN32_FIND_DATAW found{};
    const HANDLE handle = FindFirstFileW(pattern.c_str(), &found);
    if (handle == INVALID_HANDLE_VALUE)
    {
        return GetLastError();
    }
    const UniqueSearch search(handle);
    do
    {
        if (const std::wstring_view name = found.cFileName; name != L"." && name != L"..")
        {
            visit(found);
        }
    } while (FindNextFileW(search.get(), &found));
    return ERROR_SUCCESS;
}
} // namespace Testing
