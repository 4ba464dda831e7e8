#pragma once

#include <windows.h>

#include <wil/resource.h>

#include <string>

// Folders and files in places where others can write. Trusted owners are Local System, the administrators and the
// account of this process.
namespace Installer
{

// Opens a folder that only these accounts have access to, and holds it: while the handle is open, nobody can rename or
// delete the folder, or open it for writing. Creates the folder if needed. An existing one gets a private access list;
// a link, or what somebody else owns, is removed first with everything in it. No link is followed.
// The parent folder must exist. Returns the HRESULT of the call that failed.
HRESULT OpenPrivateFolder(const std::wstring& path, wil::unique_hfile& folder) noexcept;

// Whether a handle is open on a plain file with a trusted owner and a single name: not on a link, a folder, or a hard
// link to another file. The handle needs READ_CONTROL and FILE_READ_ATTRIBUTES. False when that cannot be read.
bool IsTrustedFile(HANDLE file) noexcept;

} // namespace Installer
