#pragma once

#include <windows.h>

#include <map>
#include <optional>
#include <string>

// The processes that keep a folder from being deleted: those that run a program from it.
namespace Installer
{

class Logger;

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
