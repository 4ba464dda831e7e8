#include "Installer/Path.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Installer
{

namespace
{

constexpr std::wstring_view c_extendedPrefix = L"\\\\?\\";
constexpr std::wstring_view c_extendedNetworkPrefix = L"\\\\?\\UNC\\";
constexpr std::wstring_view c_devicePrefix = L"\\\\.\\";
constexpr std::wstring_view c_networkPrefix = L"\\\\";

// The paths of Windows are shorter than what an int counts.
bool BeginsWith(std::wstring_view text, std::wstring_view beginning)
{
    const auto length = static_cast<int>(beginning.size());
    return text.size() >= beginning.size() &&
           CompareStringOrdinal(text.data(), length, beginning.data(), length, TRUE) == CSTR_EQUAL;
}

// Empty when Windows cannot tell it.
std::wstring GetFullPath(const std::wstring& path)
{
    std::wstring full(MAX_PATH, L'\0');
    for (;;)
    {
        const std::size_t size = full.size();
        full.resize(GetFullPathNameW(path.c_str(), static_cast<DWORD>(size), full.data(), nullptr));
        if (full.size() < size) // otherwise it is the size that it needs
        {
            return full;
        }
    }
}

// Writes a path the way people do where it can be written so.
std::wstring WithoutPrefix(std::wstring path)
{
    if (path.starts_with(c_devicePrefix))
    {
        path.replace(0, c_devicePrefix.size(), c_extendedPrefix);
    }
    if (BeginsWith(path, c_extendedNetworkPrefix))
    {
        path.replace(0, c_extendedNetworkPrefix.size(), c_networkPrefix);
    }
    else if (path.starts_with(c_extendedPrefix) && path.find(L':') == c_extendedPrefix.size() + 1)
    {
        path.erase(0, c_extendedPrefix.size());
    }
    return path;
}

// The one form in which paths are compared, without a separator at its end.
std::wstring Normalized(std::wstring path)
{
    std::ranges::replace(path, L'/', L'\\');
    path = WithoutPrefix(std::move(path));
    std::wstring normal = std::filesystem::path(path).lexically_normal().native();
    // Not every standard library knows that two separators in front are not the same as one.
    if (path.starts_with(c_networkPrefix) && !normal.starts_with(c_networkPrefix))
    {
        normal.insert(0, 1, L'\\');
    }
    normal.erase(normal.find_last_not_of(L'\\') + 1);
    return normal;
}

// What of a path follows the folder: empty for the folder itself; nothing when the path leads elsewhere.
std::optional<std::wstring> FindRest(const std::wstring& path, const std::wstring& folder)
{
    std::wstring rest = Normalized(path);
    const std::wstring beginning = Normalized(folder);
    if (beginning.empty() || !BeginsWith(rest, beginning))
    {
        return std::nullopt;
    }
    rest.erase(0, beginning.size());
    if (rest.empty())
    {
        return rest;
    }
    return rest.front() == L'\\' ? std::optional(rest.substr(1)) : std::nullopt;
}

} // namespace

std::wstring ToExtendedPath(const std::wstring& path)
{
    if (path.starts_with(c_extendedPrefix))
    {
        return path;
    }
    std::wstring full = GetFullPath(path);
    if (full.empty())
    {
        return path;
    }
    if (full.starts_with(c_devicePrefix))
    {
        full.replace(0, c_devicePrefix.size(), c_extendedPrefix);
    }
    else if (!full.starts_with(c_networkPrefix))
    {
        full.insert(0, c_extendedPrefix);
    }
    else if (!full.starts_with(c_extendedPrefix)) // "//?/" has become it
    {
        full.replace(0, c_networkPrefix.size(), c_extendedNetworkPrefix);
    }
    return full;
}

std::wstring_view GetParentFolder(std::wstring_view extendedPath)
{
    if (!extendedPath.starts_with(c_extendedPrefix))
    {
        return {};
    }
    // The root is a drive or volume behind the prefix, or a server and its share.
    const bool isOnNetwork = BeginsWith(extendedPath, c_extendedNetworkPrefix);
    std::size_t rootEnd =
        extendedPath.find(L'\\', isOnNetwork ? c_extendedNetworkPrefix.size() : c_extendedPrefix.size());
    if (isOnNetwork && rootEnd != std::wstring_view::npos)
    {
        rootEnd = extendedPath.find(L'\\', rootEnd + 1);
    }
    if (rootEnd == std::wstring_view::npos || rootEnd + 1 == extendedPath.size())
    {
        return {};
    }
    return extendedPath.substr(0, extendedPath.rfind(L'\\', extendedPath.size() - 2) + 1);
}

bool IsSamePath(const std::wstring& path, const std::wstring& other)
{
    const auto rest = FindRest(path, other);
    return rest && rest->empty();
}

bool IsBelow(const std::wstring& path, const std::wstring& folder)
{
    const auto rest = FindRest(path, folder);
    return rest && !rest->empty();
}

bool IsInside(const std::wstring& path, const std::wstring& folder)
{
    const auto rest = FindRest(path, folder);
    return rest && !rest->empty() && rest->front() != L'.';
}

} // namespace Installer
