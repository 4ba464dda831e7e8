#pragma once

#include <windows.h>

#include <string>

// Well-known folders, and the deletion of folder trees.
namespace Installer
{

// The folders below end in a backslash. Each falls back to its default path when Windows does not return it, or when
// out of memory; std::bad_alloc is thrown only when the default path cannot be allocated either.

// FOLDERID_ProgramFiles, by default "C:\Program Files\".
std::wstring GetProgramFilesFolder();

// FOLDERID_ProgramFilesX64, by default "C:\Program Files\".
std::wstring GetProgramFilesX64Folder();

// FOLDERID_ProgramData, by default "C:\ProgramData\".
std::wstring GetProgramDataFolder();

// The system folder (GetSystemDirectoryW), without a trailing backslash. Empty on failure, or when out of memory.
std::wstring FindSystemFolder() noexcept;

// Deletes a folder tree in one attempt. Long paths are supported; links in the tree are deleted, never followed.
// Returns S_OK when the folder is gone or did not exist, HRESULT_FROM_WIN32(ERROR_REPARSE_POINT_ENCOUNTERED) when the
// folder itself is a link (nothing is deleted then), otherwise the first failure.
HRESULT RemoveFolder(const std::wstring& path) noexcept;

// RemoveFolder, up to ten attempts, 1000 ms after each failure. Returns the last result.
HRESULT DeleteFolderWithRetry(const std::wstring& path) noexcept;

// Whether the path names a directory or a directory link. False when its attributes cannot be read.
bool FolderExists(const std::wstring& path);

// Whether a Win32 error code means that a path does not exist.
bool IsNotFoundError(DWORD error) noexcept;

// The system's message for a failure in the user's language, as FormatMessageW returns it, with its line break. Empty
// when there is none.
std::wstring GetSystemMessage(HRESULT result);

} // namespace Installer
