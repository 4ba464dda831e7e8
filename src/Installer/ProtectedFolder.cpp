#include "Installer/ProtectedFolder.h"

#include "Installer/CanonicalPath.h"
#include "Installer/Path.h"

#include <windows.h>

#include <shlobj.h>

#include <wil/resource.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>

namespace Installer
{

namespace
{

// What is protected besides the folder's ancestors.
enum class Extent
{
    Folder,
    FolderAndChildren,
    Subtree,
};

struct ProtectedFolder
{
    const KNOWNFOLDERID* id = nullptr;
    Extent extent = Extent::Folder;
};

// The folders of Windows, of all programs, and of users.
constexpr std::array c_protectedFolders{
    ProtectedFolder{&FOLDERID_Windows, Extent::Subtree},
    ProtectedFolder{&FOLDERID_System},
    ProtectedFolder{&FOLDERID_SystemX86},
    ProtectedFolder{&FOLDERID_ProgramFiles},
    ProtectedFolder{&FOLDERID_ProgramFilesX86},
    ProtectedFolder{&FOLDERID_ProgramFilesCommon},
    ProtectedFolder{&FOLDERID_ProgramFilesCommonX86},
    ProtectedFolder{&FOLDERID_ProgramData},
    ProtectedFolder{&FOLDERID_UserProfiles, Extent::FolderAndChildren}, // users' profiles
    ProtectedFolder{&FOLDERID_Profile},
    ProtectedFolder{&FOLDERID_LocalAppData},
    ProtectedFolder{&FOLDERID_RoamingAppData},
    ProtectedFolder{&FOLDERID_Public},
};

// A known folder's path, or its default path; nullopt when Windows returns neither. KF_FLAG_DONT_VERIFY: a redirected
// folder may be on a server that cannot be reached.
std::optional<std::wstring> FindCanonicalFolder(const KNOWNFOLDERID& id)
{
    constexpr DWORD currentPath = KF_FLAG_DONT_VERIFY;
    constexpr DWORD defaultPath = currentPath | DWORD{KF_FLAG_DEFAULT_PATH};
    wil::unique_cotaskmem_string folder;
    if (FAILED(SHGetKnownFolderPath(id, currentPath, nullptr, folder.put())) &&
        FAILED(SHGetKnownFolderPath(id, defaultPath, nullptr, folder.put())))
    {
        return std::nullopt;
    }
    // Falls back to the path as Windows returns it.
    return GetCanonicalPath(folder.get()).value_or(folder.get());
}

// Whether a folder (a canonical path) is protected by an entry.
bool IsProtectedBy(const ProtectedFolder& entry, const std::wstring& folder)
{
    const auto known = FindCanonicalFolder(*entry.id);
    if (!known)
    {
        return false;
    }
    return IsSamePath(*known, folder) || IsBelow(*known, folder) ||
           (entry.extent == Extent::Subtree && IsBelow(folder, *known)) ||
           (entry.extent == Extent::FolderAndChildren && IsSamePath(std::wstring(GetParentFolder(folder)), *known));
}

// Of canonical paths, only a volume's root ends in a separator. A share's root does not: Windows is asked.
bool IsVolumeRoot(const std::wstring& folder)
{
    if (folder.ends_with(L'\\'))
    {
        return true;
    }
    // GetVolumePathNameW requires a buffer for the whole path, a separator and a null.
    std::wstring volume(std::max<std::size_t>(folder.size() + 2, MAX_PATH), L'\0');
    if (!GetVolumePathNameW(folder.c_str(), volume.data(), static_cast<DWORD>(volume.size())))
    {
        return false;
    }
    volume.resize(volume.find(L'\0'));
    return IsSamePath(volume, folder);
}

} // namespace

bool IsProtectedFolder(const std::wstring& folder) noexcept
try
{
    const auto canonical = GetCanonicalPath(folder);
    return !canonical || IsVolumeRoot(*canonical) ||
           std::ranges::any_of(c_protectedFolders, [&](const auto& entry) { return IsProtectedBy(entry, *canonical); });
}
catch (...)
{
    return true;
}

} // namespace Installer
