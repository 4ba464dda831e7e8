#include "Installer/CanonicalPath.h"

#include "Installer/Common.h"
#include "Installer/Path.h"

#include <windows.h>

#include <wil/resource.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Installer
{

namespace
{

constexpr wchar_t c_globalRootPrefix[] = L"\\\\?\\GLOBALROOT";

// Reads the final path of an open file. Returns a Win32 error code.
DWORD ReadFinalPath(HANDLE file, DWORD flags, std::wstring& name)
{
    name.resize(MAX_PATH);
    for (;;)
    {
        const auto size = static_cast<DWORD>(name.size());
        const DWORD length = GetFinalPathNameByHandleW(file, name.data(), size, flags);
        if (length == 0)
        {
            return GetLastError();
        }
        name.resize(length); // the length, or the required size if the buffer was too small
        if (length < size)
        {
            return ERROR_SUCCESS;
        }
    }
}

// Reads the canonical path of an existing file or folder. Returns a Win32 error code.
DWORD ReadCanonicalPath(const std::wstring& path, std::wstring& name)
{
    const wil::unique_hfile file(CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES,
                                             FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                             OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!file)
    {
        return GetLastError();
    }
    DWORD error = ReadFinalPath(file.get(), VOLUME_NAME_DOS, name);
    if (error == ERROR_PATH_NOT_FOUND || error == ERROR_INVALID_FUNCTION)
    {
        // The volume has no drive letter or mount point, or the mount manager does not know it.
        error = ReadFinalPath(file.get(), VOLUME_NAME_NT, name);
        name.insert(0, c_globalRootPrefix);
    }
    return error;
}

constexpr std::wstring_view c_separators = L"\\/";

bool IsSeparator(std::wstring_view path, std::size_t place)
{
    return place < path.size() && c_separators.find(path[place]) != std::wstring_view::npos;
}

// Whether a path does not depend on the current directory.
bool IsFullyQualified(std::wstring_view path)
{
    const bool hasDrive = path.size() > 1 && path[1] == L':';
    return hasDrive ? IsSeparator(path, 2) : IsSeparator(path, 0) && IsSeparator(path, 1);
}

std::wstring TrimTrailingSeparators(std::wstring path)
{
    return path.erase(path.find_last_not_of(c_separators) + 1);
}

// Appends the components that do not exist to the canonical path of those that do.
std::wstring Append(std::wstring name, std::wstring_view missing)
{
    if (!name.ends_with(L'\\'))
    {
        name += L'\\';
    }
    name += missing;
    return TrimTrailingSeparators(std::move(name));
}

} // namespace

std::optional<std::wstring> GetCanonicalPath(const std::wstring& path)
{
    const std::wstring extended = ToExtendedPath(path);
    std::wstring name;
    std::wstring existing = extended; // shortened until it exists
    DWORD error = ReadCanonicalPath(existing, name);
    while (IsNotFoundError(error))
    {
        const std::wstring_view parent = GetParentFolder(existing);
        if (parent.empty())
        {
            // Not even the root exists.
            name = existing;
            error = ERROR_SUCCESS;
            break;
        }
        existing = parent;
        error = ReadCanonicalPath(existing, name);
    }
    if (error != ERROR_SUCCESS)
    {
        return std::nullopt;
    }
    if (existing.size() == extended.size())
    {
        return name;
    }
    // A relative path is not made absolute unless it exists.
    return IsFullyQualified(path) ? Append(name, std::wstring_view(extended).substr(existing.size()))
                                  : TrimTrailingSeparators(path);
}

} // namespace Installer
