#pragma once

#include <windows.h>

#include <map>
#include <optional>
#include <string>

// Processes that lock a folder: those whose executable lies in it.
namespace Installer
{

class Logger;

// The processes whose executable lies in the folder or below it: their IDs, with the executables' file names. Leaves
// out this process and `ignoredProcess` (the uninstaller's parent, which is about to exit), processes that cannot be
// queried, and those below a subfolder whose name begins with a dot. Throws wil::ResultException when no snapshot can
// be taken.
std::map<DWORD, std::wstring> FindProcessesLockingDirectory(const std::wstring& directory,
                                                            std::optional<DWORD> ignoredProcess = {});

// Logs the processes that lock the folder, asks the user whether to terminate them (silent runs do not ask), and
// terminates them without waiting for their exit. `owner` owns the dialog; it may be null. `ignoredProcess` is as
// above. Returns whether the removal may go on: false when the user cancels or a process cannot be terminated; true
// also when the check itself fails.
bool CheckDirectoryLocked(const std::wstring& directory, Logger& logger, bool silent, HWND owner,
                          std::optional<DWORD> ignoredProcess = {}) noexcept;

} // namespace Installer
