#pragma once

#include <windows.h>

#include <string>

// Folders of the machine, and the deletion of folder trees.
namespace Installer
{

// The folders end in a backslash. Each has a fixed place that stands in when Windows does not tell it or memory runs
// out meanwhile; std::bad_alloc is thrown only when there is no memory for that either.

// The uninstaller's own folder below the temporary folder, whether or not it exists.
std::wstring NameUninstallerTempFolder();

// The same folder. Makes sure that it exists: up to ten tries, a second apart; a folder that cannot be created is
// returned all the same.
std::wstring GetUninstallerTempFolder();

// "C:\Program Files\" or wherever it is on this machine.
std::wstring GetProgramFilesFolder();

// The folder of the 64-bit programs, which for this one is the same.
std::wstring GetProgramFilesX64Folder();

// "C:\ProgramData\" or wherever it is on this machine.
std::wstring GetProgramDataFolder();

// The system folder ("C:\Windows\System32" or wherever it is), without a backslash at its end. Empty when Windows does
// not tell it, or memory runs out.
std::wstring FindSystemFolder() noexcept;

// Removes a folder with everything in it, in one attempt, however long its path. Links below it are removed, never
// followed. Returns S_OK when the folder is gone or was not there, HRESULT_FROM_WIN32(ERROR_REPARSE_POINT_ENCOUNTERED)
// when the path itself is a link (nothing is touched then), and otherwise the failure of the removal.
HRESULT RemoveFolder(const std::wstring& path) noexcept;

// RemoveFolder, up to ten times with a second's pause after every failure. Returns the last result.
HRESULT DeleteFolderWithRetry(const std::wstring& path) noexcept;

// Whether the path, however long, names a folder (or a link to one) that can be seen.
bool FolderExists(const std::wstring& path);

// Whether a Win32 error code says of a path that there is nothing.
bool MeansAbsence(DWORD error) noexcept;

// The system's own text for a failure, in the user's language, as FormatMessageW gives it (line break included); empty
// when the system has none.
std::wstring GetSystemMessage(HRESULT result);

} // namespace Installer
