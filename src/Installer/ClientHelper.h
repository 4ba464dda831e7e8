#pragma once

#include <windows.h>

#include <map>
#include <optional>
#include <set>
#include <string>

// The programs that have to end before the product can be removed: its own client, and whatever was started from its
// folder.
namespace Installer
{

class Logger;

// The ids of the product's clients that are running; this process is never among them. Throws wil::ResultException
// when the processes cannot be listed.
std::set<DWORD> FindRunningClientProcesses();

// Asks the running clients to close, gives them ten seconds, terminates those that are left, and gives these ten
// seconds too. Returns whether none is running any more: false also after a standard exception, which is logged as an
// error. Other exceptions pass.
bool StopRunningClient(Logger& logger);

// The processes whose own program file lies in the folder or below it, by id, with the bare names of the files; this
// process is never among them, nor is `starter`, the one that went on as this one and ends by itself. A process that
// cannot be examined is left out, and so is one in a subfolder whose name begins with a full stop. Throws
// wil::ResultException when the processes cannot be listed.
std::map<DWORD, std::wstring> FindProcessesLockingDirectory(const std::wstring& directory,
                                                            std::optional<DWORD> starter = {});

// Sees to it that no process runs from the folder: lists those that do, asks the user (not in a silent run) whether to
// terminate them, and does so without waiting for their end. `owner` owns the dialog; null: nobody does. Returns
// whether the removal may go on: true also when the processes cannot be found out, false when the user cancels or when
// one of them cannot be terminated. `starter` is left alone, as above.
bool CheckDirectoryLocked(const std::wstring& directory, Logger& logger, bool silent, HWND owner,
                          std::optional<DWORD> starter = {}) noexcept;

} // namespace Installer
