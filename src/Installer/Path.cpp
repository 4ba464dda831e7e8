#include "Installer/Path.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Installer
{

namespace
{

constexpr std::wstring_view c_extendedPrefix = L"\\\\?\\";
constexpr std::wstring_view c_extendedNetworkPrefix = L"\\\\?\\UNC\\";
constexpr std::wstring_view c_devicePrefix = L"\\\\.\\";
constexpr std::wstring_view c_networkPrefix = L"\\\\";

// Windows' paths are shorter than INT_MAX.
bool StartsWithIgnoringCase(std::wstring_view text, std::wstring_view prefix)
{
    const auto length = static_cast<int>(prefix.size());
    return text.size() >= prefix.size() &&
           CompareStringOrdinal(text.data(), length, prefix.data(), length, TRUE) == CSTR_EQUAL;
}

// Empty on failure.
std::wstring GetFullPath(const std::wstring& path)
{
    std::wstring full(MAX_PATH, L'\0');
    for (;;)
    {
        const std::size_t size = full.size();
        full.resize(GetFullPathNameW(path.c_str(), static_cast<DWORD>(size), full.data(), nullptr));
        if (full.size() < size) // otherwise it is the required size
        {
            return full;
        }
    }
}

// Removes "\\?\" and "\\.\" from drive and UNC paths.
std::wstring RemovePrefix(std::wstring path)
{
    if (path.starts_with(c_devicePrefix))
    {
        path.replace(0, c_devicePrefix.size(), c_extendedPrefix);
    }
    if (StartsWithIgnoringCase(path, c_extendedNetworkPrefix))
    {
        path.replace(0, c_extendedNetworkPrefix.size(), c_networkPrefix);
    }
    else if (path.starts_with(c_extendedPrefix) && path.find(L':') == c_extendedPrefix.size() + 1)
    {
        path.erase(0, c_extendedPrefix.size());
    }
    return path;
}

// The length of "C:", "C:\", "\" or "\\" at the beginning.
std::size_t GetRootLength(std::wstring_view path)
{
    if (path.starts_with(c_networkPrefix))
    {
        return c_networkPrefix.size();
    }
    const std::size_t driveLength = path.size() > 1 && path[1] == L':' ? 2 : 0;
    return path.substr(driveLength).starts_with(L'\\') ? driveLength + 1 : driveLength;
}

// Resolves "." and "..", and removes empty components. (std::filesystem::path would link libstdc++'s locales: 390 KB.)
std::wstring ResolveDots(std::wstring_view path)
{
    const std::wstring_view root = path.substr(0, GetRootLength(path));
    std::vector<std::wstring_view> components;
    for (const auto range : std::views::split(path.substr(root.size()), L'\\'))
    {
        const std::wstring_view component(range.begin(), range.end());
        if (component.empty() || component == L".")
        {
            continue;
        }
        if (component == L".." && !components.empty() && components.back() != L"..")
        {
            components.pop_back();
        }
        else if (component != L".." || !root.ends_with(L'\\')) // nothing lies above a root
        {
            components.push_back(component);
        }
    }
    std::wstring resolved(root);
    for (const std::wstring_view component : components)
    {
        resolved += component;
        resolved += L'\\';
    }
    return resolved;
}

// The form in which paths are compared, without a trailing separator.
std::wstring Normalize(std::wstring path)
{
    std::ranges::replace(path, L'/', L'\\');
    std::wstring normal = ResolveDots(RemovePrefix(std::move(path)));
    normal.erase(normal.find_last_not_of(L'\\') + 1);
    return normal;
}

// The path relative to the folder: empty for the folder itself, nullopt when the path lies elsewhere.
std::optional<std::wstring> FindRelativePath(const std::wstring& path, const std::wstring& folder)
{
    std::wstring relative = Normalize(path);
    const std::wstring prefix = Normalize(folder);
    if (prefix.empty() || !StartsWithIgnoringCase(relative, prefix))
    {
        return std::nullopt;
    }
    relative.erase(0, prefix.size());
    if (relative.empty())
    {
        return relative;
    }
    return relative.front() == L'\\' ? std::optional(relative.substr(1)) : std::nullopt;
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
    else if (!full.starts_with(c_extendedPrefix)) // GetFullPathNameW turns "//?/" into the prefix
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
    // The root is the prefix with a drive or volume, or with a server and share.
    const bool isOnNetwork = StartsWithIgnoringCase(extendedPath, c_extendedNetworkPrefix);
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
    const auto relative = FindRelativePath(path, other);
    return relative && relative->empty();
}

bool IsBelow(const std::wstring& path, const std::wstring& folder)
{
    const auto relative = FindRelativePath(path, folder);
    return relative && !relative->empty();
}

bool IsInside(const std::wstring& path, const std::wstring& folder)
{
    const auto relative = FindRelativePath(path, folder);
    return relative && !relative->empty() && relative->front() != L'.';
}

} // namespace Installer
