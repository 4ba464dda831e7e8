#include "Installer/UninstallerTempFolder.h"

#include "Installer/Path.h"
#include "Installer/PrivateFolder.h"
#include "Installer/Retry.h"

#include <wil/filesystem.h>
#include <wil/result.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Installer
{

namespace
{

constexpr std::wstring_view c_uninstallerFolder = L"Velmora\\Uninstaller\\";
constexpr wchar_t c_defaultTempFolder[] = L"C:\\Windows\\Temp\\";

// Returns nullopt on failure, or when out of memory.
std::optional<std::wstring> FindUninstallerTempFolder() noexcept
try
{
    const DWORD needed = GetTempPathW(0, nullptr);
    if (needed == 0)
    {
        return std::nullopt;
    }
    std::wstring folder(needed, L'\0');
    const DWORD length = GetTempPathW(needed, folder.data());
    // TMP may have changed since the first call: the path is then longer than the buffer.
    if (length == 0 || length >= needed)
    {
        return std::nullopt;
    }
    folder.resize(length);
    folder += c_uninstallerFolder;
    return folder;
}
catch (...)
{
    return std::nullopt;
}

// Creates the temporary folder too if that is missing.
HRESULT OpenProductFolder(const std::wstring& path, wil::unique_hfile& folder)
{
    const HRESULT result = OpenPrivateFolder(path, folder);
    if (result != HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND))
    {
        return result;
    }
    RETURN_IF_FAILED(wil::CreateDirectoryDeepNoThrow(std::wstring(GetParentFolder(path)).c_str()));
    return OpenPrivateFolder(path, folder);
}

HRESULT TryOpen(UninstallerTempFolder& opened) noexcept
try
{
    std::wstring path = ToExtendedPath(opened.path);
    path.pop_back(); // with a separator at its end, it would lead through a link
    RETURN_IF_FAILED(OpenProductFolder(path.substr(0, path.rfind(L'\\')), opened.product));
    RETURN_IF_FAILED(OpenPrivateFolder(path, opened.folder));
    return S_OK;
}
CATCH_RETURN()

} // namespace

std::wstring GetUninstallerTempFolderPath()
{
    auto found = FindUninstallerTempFolder();
    return found ? *std::move(found) : std::wstring(c_defaultTempFolder).append(c_uninstallerFolder);
}

UninstallerTempFolder OpenUninstallerTempFolder()
{
    UninstallerTempFolder opened;
    opened.path = GetUninstallerTempFolderPath();
    opened.result = Retry(c_tenTimesPausingAfterEach, [&] { return TryOpen(opened); });
    return opened;
}

std::wstring GetUninstallerTempFolder()
{
    return OpenUninstallerTempFolder().path;
}

} // namespace Installer
