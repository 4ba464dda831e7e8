#include "Installer/ProtectedFolder.h"

#include "Installer/CanonicalPath.h"
#include "Installer/Common.h"

#include <windows.h>

#include <shlobj.h>

#include <wil/resource.h>
#include <wil/result.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>

namespace Installer
{

namespace
{

// What other programs, other users and Windows itself live in.
constexpr std::array c_protectedFolders{
    &FOLDERID_Windows,         &FOLDERID_System,       &FOLDERID_SystemX86,          &FOLDERID_ProgramFiles,
    &FOLDERID_ProgramFilesX86, &FOLDERID_ProgramData,  &FOLDERID_ProgramFilesCommon, &FOLDERID_ProgramFilesCommonX86,
    &FOLDERID_Profile,         &FOLDERID_LocalAppData, &FOLDERID_RoamingAppData,     &FOLDERID_Public,
    &FOLDERID_UserProfiles,
};

// Whether the answer is that this Windows has no such folder.
bool IsAbsent(HRESULT result)
{
    return result == E_INVALIDARG ||
           (HRESULT_FACILITY(result) == FACILITY_WIN32 && MeansAbsence(static_cast<DWORD>(HRESULT_CODE(result))));
}

// Nothing when this Windows has no such folder. Throws when it does not tell: then it could be any.
std::optional<std::filesystem::path> FindKnownFolder(const KNOWNFOLDERID& id)
{
    wil::unique_cotaskmem_string folder;
    const HRESULT result = SHGetKnownFolderPath(id, 0, nullptr, folder.put());
    if (IsAbsent(result))
    {
        return std::nullopt;
    }
    THROW_IF_FAILED(result);
    // One that cannot be looked at is compared as it is written.
    return GetCanonicalPath(folder.get()).value_or(folder.get());
}

bool IsVolumeRoot(const std::filesystem::path& folder)
{
    std::array<wchar_t, MAX_PATH> volume{};
    return GetVolumePathNameW(folder.c_str(), volume.data(), static_cast<DWORD>(volume.size())) &&
           (folder / L"").lexically_normal() == std::filesystem::path(volume.data());
}

// Every folder beside the one that is known is somebody's profile.
bool IsProfile(const std::filesystem::path& folder)
{
    const auto profiles = FindKnownFolder(FOLDERID_UserProfiles);
    return profiles && folder.parent_path() == *profiles;
}

// Whatever it is, no product lives there.
bool IsInsideWindows(const std::filesystem::path& folder)
{
    const auto windows = FindKnownFolder(FOLDERID_Windows);
    return windows && IsInside(folder, *windows);
}

} // namespace

bool IsProtectedFolder(const std::wstring& folder) noexcept
try
{
    auto canonical = GetCanonicalPath(folder);
    if (!canonical)
    {
        return true;
    }
    if (!canonical->has_filename())
    {
        *canonical = canonical->parent_path(); // less the separator at its end
    }
    return IsVolumeRoot(*canonical) || IsProfile(*canonical) || IsInsideWindows(*canonical) ||
           std::ranges::any_of(c_protectedFolders, [&](const KNOWNFOLDERID* id) {
               const auto known = FindKnownFolder(*id);
               return known && (*known == *canonical || IsInside(*known, *canonical));
           });
}
catch (...)
{
    return true;
}

} // namespace Installer
