#include "Installer/Shortcuts.h"

#include "Installer/Retry.h"

#include <shlobj.h>

#include <wil/resource.h>
#include <wil/result.h>

#include <string>

namespace Installer
{

namespace
{

constexpr wchar_t c_shortcutName[] = L"\\Velmora.lnk";

HRESULT TryDeleteShortcut(const KNOWNFOLDERID& folderId)
{
    wil::unique_cotaskmem_string folder;
    RETURN_IF_FAILED(SHGetKnownFolderPath(folderId, 0, nullptr, folder.put()));
    std::wstring path;
    RETURN_IF_FAILED(BuildShortcutPath(folder.get(), path));
    return DeleteShortcutFile(path);
}

} // namespace

HRESULT DeleteDesktopShortcut() noexcept
{
    return Retry(c_tenTimesPausingAfterEach, [] { return TryDeleteShortcut(FOLDERID_PublicDesktop); });
}

HRESULT DeleteStartMenuShortcut() noexcept
{
    return Retry(c_tenTimesPausingAfterEach, [] { return TryDeleteShortcut(FOLDERID_CommonPrograms); });
}

HRESULT BuildShortcutPath(const wchar_t* folder, std::wstring& path) noexcept
try
{
    path = std::wstring(folder) + c_shortcutName;
    return S_OK;
}
CATCH_RETURN()

HRESULT DeleteShortcutFile(const std::wstring& path) noexcept
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
    {
        return S_OK;
    }
    RETURN_IF_WIN32_BOOL_FALSE(DeleteFileW(path.c_str()));
    SHChangeNotify(SHCNE_DELETE, SHCNF_PATHW | SHCNF_FLUSHNOWAIT, path.c_str(), nullptr);
    return S_OK;
}

} // namespace Installer
