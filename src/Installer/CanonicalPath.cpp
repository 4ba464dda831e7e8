#include "Installer/CanonicalPath.h"

#include "Installer/Common.h"

#include <windows.h>

#include <wil/resource.h>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace Installer
{

namespace
{

constexpr std::wstring_view c_longPathPrefix = L"\\\\?\\";
constexpr std::wstring_view c_longNetworkPrefix = L"\\\\?\\UNC\\";
constexpr std::wstring_view c_networkPrefix = L"\\\\";
constexpr wchar_t c_objectPrefix[] = L"\\\\?\\GLOBALROOT";
constexpr std::wstring_view c_separators = L"\\/";

// Whether a path begins with a drive.
bool HasDrive(std::wstring_view path)
{
    return path.size() >= 2 && path[1] == L':';
}

// Writes a name the way people do where it can be written so.
std::wstring WithoutPrefix(std::wstring name)
{
    if (name.starts_with(c_longNetworkPrefix))
    {
        name.replace(0, c_longNetworkPrefix.size(), c_networkPrefix);
    }
    else if (name.starts_with(c_longPathPrefix) && HasDrive(std::wstring_view(name).substr(c_longPathPrefix.size())))
    {
        name.erase(0, c_longPathPrefix.size());
    }
    return name;
}

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
    if (error == ERROR_SUCCESS)
    {
        name = WithoutPrefix(name);
    }
    else if (error == ERROR_PATH_NOT_FOUND)
    {
        // The volume has neither a letter nor a folder that leads to it.
        error = ReadFinalName(file.get(), VOLUME_NAME_NT, name);
        name.insert(0, c_objectPrefix);
    }
    return error;
}

} // namespace

std::optional<std::filesystem::path> GetCanonicalPath(const std::wstring& path)
{
    std::wstring name;
    std::size_t end = path.size(); // of the part of the path that is looked at
    DWORD error = ReadCanonicalName(path, name);
    while (MeansAbsence(error))
    {
        end = path.find_last_of(c_separators, end - 1);
        if (end == std::wstring::npos || end < c_networkPrefix.size())
        {
            return path; // not even its root is there
        }
        // With the separator: without it, "C:" would not be the root.
        error = ReadCanonicalName(path.substr(0, end + 1), name);
    }
    if (error != ERROR_SUCCESS)
    {
        return std::nullopt;
    }
    if (end == path.size())
    {
        return name;
    }
    return std::filesystem::path(name) / std::filesystem::path(path.substr(end + 1)).lexically_normal();
}

bool IsInside(const std::filesystem::path& path, const std::filesystem::path& folder)
{
    const std::wstring relative = path.lexically_relative(folder).native();
    return !relative.empty() && relative.front() != L'.';
}

} // namespace Installer
