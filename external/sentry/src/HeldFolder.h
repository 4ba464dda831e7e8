#pragma once

#include <windows.h>

#include <winternl.h>

#include <wil/resource.h>

#include <string_view>

// What lies in a folder that is held open. Such a folder cannot be renamed, but whoever may write its attributes can
// make a junction of it while it is empty: FSCTL_SET_REPARSE_POINT does not ask for sharing. So nothing in it has a
// path: it is opened by its bare name, relative to the folder's handle, and deleted through its own handle. No link is
// followed: neither the folder, which then contains nothing any more, nor what bears the name, which is opened itself.
namespace Reporter
{

// Opens or creates, as `disposition` says (FILE_OPEN, FILE_CREATE, FILE_OPEN_IF), a folder or a file, as `kind` says
// (FILE_DIRECTORY_FILE, FILE_NON_DIRECTORY_FILE). Its attributes may be read, whatever the access. Empty on failure.
// Needs no memory.
wil::unique_hfile OpenIn(HANDLE folder, std::wstring_view name, ACCESS_MASK access, ULONG share, ULONG disposition,
                         ULONG kind) noexcept;

// Opens the folder itself once more, whatever its path is by now. Empty on failure.
wil::unique_hfile ReopenFolder(HANDLE folder, DWORD access) noexcept;

// Creates a file to be written, and perhaps deleted, by nobody else. Empty on failure. Needs no memory.
wil::unique_hfile CreateFileIn(HANDLE folder, std::wstring_view name) noexcept;

// Deletes a file or an empty folder that was opened for that. A failure leaves it.
void Delete(HANDLE opened) noexcept;

// Deletes a file. A failure leaves it.
void DeleteFileIn(HANDLE folder, std::wstring_view name) noexcept;

// Closes a folder and deletes it if it is empty and not in use.
void DeleteFolder(wil::unique_hfile& folder) noexcept;

} // namespace Reporter
