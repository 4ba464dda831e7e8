#include "Installer/Environment.h"

#include <wil/result.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Installer
{

namespace
{

constexpr wchar_t c_environmentKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";
constexpr wchar_t c_pathValue[] = L"PATH";
constexpr UINT c_broadcastTimeoutMilliseconds = 1000;

// An entry of PATH with its ";".
struct Segment
{
    std::size_t begin;
    std::size_t length;
};

// Finds the last segment that equals the target, ignoring case. Both end in ";".
std::optional<Segment> FindLastSegment(const std::wstring& path, const std::wstring& target)
{
    for (std::size_t end = path.size(); end > 0;)
    {
        const std::size_t separator = end < 2 ? std::wstring::npos : path.rfind(L';', end - 2);
        const std::size_t begin = separator == std::wstring::npos ? 0 : separator + 1;
        const std::wstring segment = path.substr(begin, end - begin);
        if (CompareStringOrdinal(segment.c_str(), -1, target.c_str(), -1, TRUE) == CSTR_EQUAL)
        {
            return Segment{begin, end - begin};
        }
        end = begin;
    }
    return std::nullopt;
}

HRESULT WriteMachinePath(const std::wstring& path)
{
    wil::unique_hkey key;
    RETURN_IF_FAILED(OpenEnvironmentKey(KEY_ALL_ACCESS, key));
    RETURN_IF_WIN32_ERROR(RegSetKeyValueW(key.get(), nullptr, c_pathValue, REG_EXPAND_SZ, path.c_str(),
                                          static_cast<DWORD>((path.size() + 1) * sizeof(wchar_t))));
    SendMessageTimeoutW(HWND_BROADCAST, WM_SETTINGCHANGE, 0, reinterpret_cast<LPARAM>(L"Environment"),
                        SMTO_BLOCK | SMTO_NOTIMEOUTIFNOTHUNG, c_broadcastTimeoutMilliseconds, nullptr);
    return S_OK;
}

} // namespace

HRESULT OpenEnvironmentKey(REGSAM access, wil::unique_hkey& key) noexcept
{
    RETURN_IF_WIN32_ERROR(RegOpenKeyExW(HKEY_LOCAL_MACHINE, c_environmentKey, 0, access, key.put()));
    return S_OK;
}

HRESULT ReadMachinePath(std::wstring& path) noexcept
try
{
    path.clear();
    wil::unique_hkey key;
    RETURN_IF_FAILED(OpenEnvironmentKey(KEY_READ, key));

    DWORD size = 0;
    const LSTATUS status = RegQueryValueExW(key.get(), c_pathValue, nullptr, nullptr, nullptr, &size);
    if (status != ERROR_FILE_NOT_FOUND) // the second query reports a missing value
    {
        RETURN_IF_WIN32_ERROR(status);
    }
    // `size` is in bytes: the buffer is always larger than the value, so the text is null-terminated.
    std::vector<wchar_t> buffer(std::size_t{size} + 1);
    RETURN_IF_WIN32_ERROR(
        RegQueryValueExW(key.get(), c_pathValue, nullptr, nullptr, reinterpret_cast<BYTE*>(buffer.data()), &size));
    path = buffer.data();
    if (!path.empty() && !path.ends_with(L';'))
    {
        path += L';';
    }
    return S_OK;
}
CATCH_RETURN()

HRESULT RemoveFromMachinePath(const std::wstring& entry) noexcept
try
{
    std::wstring path;
    RETURN_IF_FAILED(ReadMachinePath(path));

    const std::wstring target = entry.ends_with(L';') ? entry : entry + L';';
    const auto segment = FindLastSegment(path, target);
    if (!segment)
    {
        return S_OK;
    }
    path.erase(segment->begin, segment->length);
    RETURN_IF_FAILED(WriteMachinePath(path));
    return S_OK;
}
CATCH_RETURN()

} // namespace Installer
