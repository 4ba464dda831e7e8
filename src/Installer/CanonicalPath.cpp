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

constexpr wchar_t c_objectPrefix[] = L"\\\\?\\GLOBALROOT";

// Reads the name of an open file. Returns ERROR_SUCCESS or why it is not known.
DWORD ReadFinalName(HANDLE file, DWORD kind, std::wstring& name)
{
    name.resize(MAX_PATH);
    for (;;)
    {
        const auto size = static_cast<DWORD>(name.size());
        const DWORD length = GetFinalPathNameByHandleW(file, name.data(), size, kind);
        if (length == 0)
        {
            return GetLastError();
        }
        name.resize(length); // or the size that it needs, when it is not less than the size that was given
        if (length < size)
        {
            return ERROR_SUCCESS;
        }
    }
}

// Reads the canonical name of something that is there. Returns ERROR_SUCCESS or why it is not known.
DWORD ReadCanonicalName(const std::wstring& path, std::wstring& name)
{
    const wil::unique_hfile file(CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES,
                                             FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                             OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!file)
    {
        return GetLastError();
    }
    DWORD error = ReadFinalName(file.get(), VOLUME_NAME_DOS, name);
    if (error == ERROR_PATH_NOT_FOUND || error == ERROR_INVALID_FUNCTION)
    {
        // The volume has neither a letter nor a folder that leads to it, or the mount manager does not know it.
        error = ReadFinalName(file.get(), VOLUME_NAME_NT, name);
        name.insert(0, c_objectPrefix);
    }
    return error;
}

constexpr std::wstring_view c_separators = L"\\/";

bool IsSeparator(std::wstring_view path, std::size_t place)
{
    return place < path.size() && c_separators.find(path[place]) != std::wstring_view::npos;
}

// Whether a path means the same place whatever the current folder is.
bool IsFull(std::wstring_view path)
{
    const bool hasDrive = path.size() > 1 && path[1] == L':';
    return hasDrive ? IsSeparator(path, 2) : IsSeparator(path, 0) && IsSeparator(path, 1);
}

std::wstring WithoutLastSeparators(std::wstring path)
{
    return path.erase(path.find_last_not_of(c_separators) + 1);
}

// Puts what there is not behind the name of what there is.
std::wstring Append(std::wstring name, std::wstring_view rest)
{
    if (!name.ends_with(L'\\'))
    {
        name += L'\\';
    }
    name += rest;
    return WithoutLastSeparators(std::move(name));
}

} // namespace

std::optional<std::wstring> GetCanonicalPath(const std::wstring& path)
{
    const std::wstring whole = ToExtendedPath(path);
    std::wstring name;
    std::wstring there = whole; // the part of the path that is looked at
    DWORD error = ReadCanonicalName(there, name);
    while (MeansAbsence(error))
    {
        const std::wstring_view parent = GetParentFolder(there);
        if (parent.empty())
        {
            // Not even the root is there: it stays as it is written.
            name = there;
            error = ERROR_SUCCESS;
            break;
        }
        there = parent;
        error = ReadCanonicalName(there, name);
    }
    if (error != ERROR_SUCCESS)
    {
        return std::nullopt;
    }
    if (there.size() == whole.size())
    {
        return name;
    }
    // A relative path that leads to nothing from here does not mean a place here.
    return IsFull(path) ? Append(name, std::wstring_view(whole).substr(there.size())) : WithoutLastSeparators(path);
}

} // namespace Installer
