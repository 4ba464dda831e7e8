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

// What is protected with a folder, besides everything that holds it.
enum class Extent
{
    Alone,
    WithItsFolders, // those directly in it
    WithEverythingInIt,
};

struct ProtectedFolder
{
    const KNOWNFOLDERID* id = nullptr;
    Extent extent = Extent::Alone;
};

// What other programs, other users and Windows itself live in.
constexpr std::array c_protectedFolders{
    ProtectedFolder{&FOLDERID_Windows, Extent::WithEverythingInIt}, // whatever it is, no product lives there
    ProtectedFolder{&FOLDERID_System},
    ProtectedFolder{&FOLDERID_SystemX86},
    ProtectedFolder{&FOLDERID_ProgramFiles},
    ProtectedFolder{&FOLDERID_ProgramFilesX86},
    ProtectedFolder{&FOLDERID_ProgramFilesCommon},
    ProtectedFolder{&FOLDERID_ProgramFilesCommonX86},
    ProtectedFolder{&FOLDERID_ProgramData},
    ProtectedFolder{&FOLDERID_UserProfiles, Extent::WithItsFolders}, // each of them is somebody's profile
    ProtectedFolder{&FOLDERID_Profile},
    ProtectedFolder{&FOLDERID_LocalAppData},
    ProtectedFolder{&FOLDERID_RoamingAppData},
    ProtectedFolder{&FOLDERID_Public},
};

// Where a known folder is, or else where it usually is; nothing when Windows tells neither. Whether it is there is not
// asked: it may be on a server that cannot be reached.
std::optional<std::wstring> FindKnownFolder(const KNOWNFOLDERID& id)
{
    constexpr DWORD current = KF_FLAG_DONT_VERIFY;
    constexpr DWORD usual = current | DWORD{KF_FLAG_DEFAULT_PATH};
    wil::unique_cotaskmem_string folder;
    if (FAILED(SHGetKnownFolderPath(id, current, nullptr, folder.put())) &&
        FAILED(SHGetKnownFolderPath(id, usual, nullptr, folder.put())))
    {
        return std::nullopt;
    }
    // One that cannot be looked at is compared as it is written.
    return GetCanonicalPath(folder.get()).value_or(folder.get());
}

// Whether a folder, given canonically, is protected by another.
bool IsProtectedBy(const ProtectedFolder& its, const std::wstring& folder)
{
    const auto known = FindKnownFolder(*its.id);
    if (!known)
    {
        return false;
    }
    return IsSamePath(*known, folder) || IsBelow(*known, folder) ||
           (its.extent == Extent::WithEverythingInIt && IsBelow(folder, *known)) ||
           (its.extent == Extent::WithItsFolders && IsSamePath(std::wstring(GetParentFolder(folder)), *known));
}

// Of a local volume the name alone tells it; of others Windows does.
bool IsVolumeRoot(const std::wstring& folder)
{
    if (folder.ends_with(L'\\'))
    {
        return true;
    }
    // Room for the whole path, with a separator and a zero: Windows wants that much however short the answer is.
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
           std::ranges::any_of(c_protectedFolders, [&](const auto& its) { return IsProtectedBy(its, *canonical); });
}
catch (...)
{
    return true;
}

} // namespace Installer
