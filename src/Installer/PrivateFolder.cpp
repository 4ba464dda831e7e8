#include "Installer/PrivateFolder.h"

#include "Installer/Common.h"
#include "Installer/ScopedPrivilege.h"

#include <aclapi.h>
#include <sddl.h>

#include <wil/resource.h>
#include <wil/result.h>
#include <wil/token_helpers.h>

#include <string>
#include <utility>

namespace Installer
{

namespace
{

constexpr HRESULT c_isForeign = S_FALSE;

// Full access for Local System, the administrators and the account of this process, inherited by what is created in the
// folder; nothing is inherited from the parent.
wil::unique_hlocal_security_descriptor MakePrivateDescriptor()
{
    const auto user = wil::get_token_information<TOKEN_USER>(GetCurrentThreadEffectiveToken());
    wil::unique_hlocal_string sid;
    THROW_IF_WIN32_BOOL_FALSE(ConvertSidToStringSidW(user->User.Sid, sid.put()));
    const std::wstring text =
        std::wstring(L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;").append(sid.get()).append(L")");
    wil::unique_hlocal_security_descriptor descriptor;
    THROW_IF_WIN32_BOOL_FALSE(
        ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, descriptor.put(), nullptr));
    return descriptor;
}

// S_OK or c_isForeign.
HRESULT CheckOwner(HANDLE file)
{
    PSID owner = nullptr;
    wil::unique_hlocal_security_descriptor descriptor;
    RETURN_IF_WIN32_ERROR(GetSecurityInfo(file, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr,
                                          nullptr, descriptor.put()));
    const auto user = wil::get_token_information<TOKEN_USER>(GetCurrentThreadEffectiveToken());
    const bool isTrusted =
        owner != nullptr && (IsWellKnownSid(owner, WinLocalSystemSid) ||
                             IsWellKnownSid(owner, WinBuiltinAdministratorsSid) || EqualSid(owner, user->User.Sid));
    return isTrusted ? S_OK : c_isForeign;
}

// S_OK for a folder of a trusted owner, c_isForeign for a link and for what somebody else owns.
HRESULT CheckFolder(const std::wstring& path, HANDLE folder)
{
    FILE_ATTRIBUTE_TAG_INFO info{};
    RETURN_IF_WIN32_BOOL_FALSE(GetFileInformationByHandleEx(folder, FileAttributeTagInfo, &info, sizeof(info)));
    // Cloud folders, for example, are reparse points but no links.
    const bool isReparsePoint = (info.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    const DWORD attributesOfPath = GetFileAttributesW(path.c_str()); // some systems report a link there only
    RETURN_LAST_ERROR_IF(attributesOfPath == INVALID_FILE_ATTRIBUTES);
    const bool isLink = isReparsePoint ? IsReparseTagNameSurrogate(info.ReparseTag)
                                       : (attributesOfPath & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    const HRESULT owner = isLink ? c_isForeign : CheckOwner(folder);
    RETURN_HR_IF(HRESULT_FROM_WIN32(ERROR_DIRECTORY),
                 owner == S_OK && (info.FileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0);
    return owner;
}

// Whether the volume has owners and access lists: not FAT.
bool HasAccessLists(HANDLE file)
{
    DWORD flags = 0;
    return GetVolumeInformationByHandleW(file, nullptr, 0, nullptr, nullptr, &flags, nullptr, 0) &&
           (flags & FILE_PERSISTENT_ACLS) != 0;
}

// Removes what is in a private folder's place, whatever its access list says.
HRESULT RemoveForeign(const std::wstring& path)
{
    const ScopedPrivilege backup(SE_BACKUP_NAME);
    const ScopedPrivilege restore(SE_RESTORE_NAME);
    const HRESULT result = RemoveFolder(path); // which does not follow a link
    if (result == HRESULT_FROM_WIN32(ERROR_REPARSE_POINT_ENCOUNTERED))
    {
        RETURN_IF_WIN32_BOOL_FALSE(RemoveDirectoryW(path.c_str())); // the link itself
        return S_OK;
    }
    if (result == HRESULT_FROM_WIN32(ERROR_DIRECTORY))
    {
        RETURN_IF_WIN32_BOOL_FALSE(DeleteFileW(path.c_str()));
        return S_OK;
    }
    return result;
}

// One attempt. c_isForeign if something foreign is in the folder's place.
HRESULT TryOpenPrivateFolder(const std::wstring& path, PSECURITY_DESCRIPTOR descriptor, wil::unique_hfile& folder)
{
    SECURITY_ATTRIBUTES attributes{
        .nLength = sizeof(attributes), .lpSecurityDescriptor = descriptor, .bInheritHandle = FALSE};
    const bool isNew = CreateDirectoryW(path.c_str(), &attributes) != FALSE;
    RETURN_LAST_ERROR_IF(!isNew && GetLastError() != ERROR_ALREADY_EXISTS);

    // Not shared for writing: that excludes handles that can still create files, or make a link of the folder.
    wil::unique_hfile opened(CreateFileW(path.c_str(), FILE_LIST_DIRECTORY | READ_CONTROL | WRITE_DAC, FILE_SHARE_READ,
                                         nullptr, OPEN_EXISTING,
                                         FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (!opened && GetLastError() == ERROR_ACCESS_DENIED)
    {
        return c_isForeign;
    }
    RETURN_LAST_ERROR_IF(!opened);
    RETURN_HR_IF(HRESULT_FROM_WIN32(ERROR_NOT_SUPPORTED), !HasAccessLists(opened.get()));
    if (const HRESULT checked = CheckFolder(path, opened.get()); checked != S_OK)
    {
        return checked;
    }
    if (!isNew)
    {
        // Not SetSecurityInfo, which applies the list to everything in the folder.
        RETURN_IF_WIN32_BOOL_FALSE(SetKernelObjectSecurity(
            opened.get(), DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, descriptor));
    }
    folder = std::move(opened);
    return S_OK;
}

} // namespace

HRESULT OpenPrivateFolder(const std::wstring& path, wil::unique_hfile& folder) noexcept
try
{
    const auto descriptor = MakePrivateDescriptor();
    HRESULT result = TryOpenPrivateFolder(path, descriptor.get(), folder);
    if (result == c_isForeign)
    {
        RETURN_IF_FAILED(RemoveForeign(path));
        result = TryOpenPrivateFolder(path, descriptor.get(), folder);
    }
    return result == c_isForeign ? E_ACCESSDENIED : result;
}
CATCH_RETURN()

bool IsTrustedFile(HANDLE file) noexcept
try
{
    BY_HANDLE_FILE_INFORMATION information{};
    return GetFileInformationByHandle(file, &information) &&
           (information.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == 0 &&
           information.nNumberOfLinks == 1 && CheckOwner(file) == S_OK;
}
catch (...)
{
    return false;
}

} // namespace Installer
