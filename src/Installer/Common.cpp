#include "Installer/Common.h"

#include "Installer/Path.h"
#include "Installer/Retry.h"

#include <shlobj.h>

#include <wil/filesystem.h>
#include <wil/resource.h>
#include <wil/result.h>

#include <array>
#include <optional>
#include <string>
#include <utility>

namespace Installer
{

namespace
{

constexpr wchar_t c_defaultProgramFiles[] = L"C:\\Program Files\\";
constexpr wchar_t c_defaultProgramData[] = L"C:\\ProgramData\\";
constexpr DWORD c_userDefaultLanguage = 0x400;

std::optional<std::wstring> FindKnownFolder(const KNOWNFOLDERID& id) noexcept
try
{
    wil::unique_cotaskmem_string folder;
    if (FAILED(SHGetKnownFolderPath(id, 0, nullptr, folder.put())))
    {
        return std::nullopt;
    }
    return std::wstring(folder.get()) + L"\\";
}
catch (...)
{
    return std::nullopt;
}

std::wstring GetKnownFolder(const KNOWNFOLDERID& id, const wchar_t* fallback)
{
    auto folder = FindKnownFolder(id);
    return folder ? *std::move(folder) : fallback;
}

// Whether a folder is a link (a name surrogate). The recursive removal does not follow links in the tree; this check
// covers its root: any user can create a junction below ProgramData for an elevated process to follow.
bool IsNameSurrogate(std::wstring path)
{
    // With a trailing separator, the path could resolve to the link's target.
    path.erase(path.find_last_not_of(L"\\/") + 1);
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0)
    {
        return false;
    }
    // Cloud folders, for example, are reparse points but no links. If the tag is unknown, assume a link.
    WIN32_FIND_DATAW found{};
    const wil::unique_hfind search(FindFirstFileW(path.c_str(), &found));
    return !search || found.dwReserved0 == IO_REPARSE_TAG_RESERVED_ZERO || IsReparseTagNameSurrogate(found.dwReserved0);
}

} // namespace

std::wstring GetProgramFilesFolder()
{
    return GetKnownFolder(FOLDERID_ProgramFiles, c_defaultProgramFiles);
}

std::wstring GetProgramFilesX64Folder()
{
    return GetKnownFolder(FOLDERID_ProgramFilesX64, c_defaultProgramFiles);
}

std::wstring GetProgramDataFolder()
{
    return GetKnownFolder(FOLDERID_ProgramData, c_defaultProgramData);
}

std::wstring FindSystemFolder() noexcept
try
{
    std::array<wchar_t, MAX_PATH> folder{};
    const UINT length = GetSystemDirectoryW(folder.data(), static_cast<UINT>(folder.size()));
    const bool isComplete = length > 0 && length < folder.size();
    return isComplete ? std::wstring(folder.data(), length) : std::wstring();
}
catch (...)
{
    return {};
}

HRESULT RemoveFolder(const std::wstring& path) noexcept
try
{
    const std::wstring extended = ToExtendedPath(path);
    RETURN_HR_IF(HRESULT_FROM_WIN32(ERROR_REPARSE_POINT_ENCOUNTERED), IsNameSurrogate(extended));
    const HRESULT result = wil::RemoveDirectoryRecursiveNoThrow(extended.c_str());
    return result == HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND) ? S_OK : result;
}
CATCH_RETURN()

HRESULT DeleteFolderWithRetry(const std::wstring& path) noexcept
{
    return Retry(c_tenTimesPausingAfterEach, [&] { return RemoveFolder(path); });
}

bool FolderExists(const std::wstring& path)
{
    const DWORD attributes = GetFileAttributesW(ToExtendedPath(path).c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool IsNotFoundError(DWORD error) noexcept
{
    switch (error)
    {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_BAD_NETPATH:
    case ERROR_NETNAME_DELETED:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_DIRECTORY:
        return true;
    default:
        return false;
    }
}

std::wstring GetSystemMessage(HRESULT result)
{
    std::array<wchar_t, 256> text{};
    FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, static_cast<DWORD>(result),
                   c_userDefaultLanguage, text.data(), static_cast<DWORD>(text.size()), nullptr);
    return text.data();
}

} // namespace Installer
