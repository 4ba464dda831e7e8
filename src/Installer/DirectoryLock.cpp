#include "Installer/DirectoryLock.h"

#include "Installer/CanonicalPath.h"
#include "Installer/ClientHelper.h"
#include "Installer/Common.h"
#include "Installer/Logger.h"
#include "Installer/Path.h"
#include "Installer/ProcessSnapshot.h"
#include "Installer/ProcessTermination.h"
#include "Installer/Resources.h"

#include <commctrl.h>

#include <wil/resource.h>
#include <wil/win32_helpers.h>

#include <array>
#include <exception>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Installer
{

namespace
{

// Process IDs and the executables' file names.
using Processes = std::map<DWORD, std::wstring>;

constexpr wchar_t c_lockCheckFailed[] = L"[ClientHelper] Unable to determine if processes are locking directory: ";

// Adds the process if its executable lies in or below the folder (a canonical path). Returns whether it was added; one
// that cannot be queried is not.
bool AddIfImageIsInside(const std::wstring& folder, const PROCESSENTRY32W& entry, Processes& processes) noexcept
try
{
    const wil::unique_process_handle process(
        OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, entry.th32ProcessID));
    wil::unique_cotaskmem_string image;
    if (!process || FAILED(wil::QueryFullProcessImageNameW(process.get(), 0, image)))
    {
        return false;
    }
    const auto file = GetCanonicalPath(image.get());
    return file && IsInside(*file, folder) && processes.try_emplace(entry.th32ProcessID, entry.szExeFile).second;
}
catch (...)
{
    return false;
}

// Logs the processes. Returns the list that the dialog shows, on one line.
std::wstring LogProcesses(const Processes& processes, Logger& logger)
{
    logger.Warning(L"[ClientHelper] The following processes were found locking the directory:", false);
    std::wstring list;
    for (const auto& [id, name] : processes)
    {
        list += L'[' + std::to_wstring(id) + L"] " + name;
        logger.Warning(L"                 - " + name + L" (Pid: " + std::to_wstring(id) + L')', false);
    }
    std::erase(list, L'\n'); // a file name may contain one
    return list;
}

// Returns the ID of the button that the user chose: IDCONTINUE when the dialog fails.
int PromptUser(const std::wstring& list, Logger& logger, HWND owner)
{
    constexpr std::array buttons{TASKDIALOG_BUTTON{IDRETRY, L"Retry"}, TASKDIALOG_BUTTON{IDCONTINUE, L"Continue"},
                                 TASKDIALOG_BUTTON{IDCANCEL, L"Cancel"}};
    TASKDIALOGCONFIG dialog{};
    dialog.cbSize = sizeof(dialog);
    dialog.hwndParent = owner;
    dialog.hInstance = GetModuleHandleW(nullptr);
    dialog.dwFlags = TDF_SIZE_TO_CONTENT;
    dialog.pszWindowTitle = L"Velmora";
    dialog.pszMainIcon = MAKEINTRESOURCEW(IDI_VELMORA);
    dialog.pszMainInstruction = L"Uninstall Velmora";
    dialog.pszContent = L"There are programs preventing Velmora from uninstalling. You can press Continue and Velmora "
                        L"will attempt to close them automatically, otherwise if you have closed them yourself, press "
                        L"Retry for Velmora to try again.";
    dialog.cButtons = static_cast<UINT>(buttons.size());
    dialog.pButtons = buttons.data();
    dialog.nDefaultButton = IDCANCEL;
    dialog.pszFooter = list.c_str();

    int button = 0;
    const HRESULT result = TaskDialogIndirect(&dialog, &button, nullptr, nullptr);
    if (result != S_OK)
    {
        logger.Warning(L"[ClientHelper] Unable to prompt user to terminate these processes, continuing with "
                       L"termination: " +
                           std::to_wstring(result),
                       true);
        return IDCONTINUE;
    }
    return button;
}

// Returns whether the process is terminated or has presumably exited.
bool TerminateLockingProcess(DWORD id, const std::wstring& name, Logger& logger)
{
    logger.Info(L"[ClientHelper] Terminating " + name + L"...");
    const wil::unique_process_handle process = OpenForTermination(id);
    if (!process)
    {
        return LogOpenFailure(logger, HRESULT_FROM_WIN32(GetLastError()), true);
    }
    if (Terminate(process))
    {
        logger.Info(L"[ClientHelper] Success!");
        return true;
    }
    const HRESULT result = HRESULT_FROM_WIN32(GetLastError());
    if (result == E_ACCESSDENIED)
    {
        logger.Error(L"[ClientHelper] Process termination failed with E_ACCESSDENIED, it's possible this process has "
                     L"already been terminated? We will assume so.",
                     false);
        return true;
    }
    logger.Error(L"[ClientHelper] Failed to terminate process: " + std::to_wstring(result), true);
    return false;
}

bool TerminateLockingProcesses(const Processes& lockingProcesses, Logger& logger)
{
    logger.Info(L"[ClientHelper] Attempting to terminate processes...");
    bool areTerminated = true;
    for (const auto& [id, name] : lockingProcesses)
    {
        areTerminated = TerminateLockingProcess(id, name, logger) && areTerminated;
    }
    return areTerminated;
}

} // namespace

std::map<DWORD, std::wstring> FindProcessesLockingDirectory(const std::wstring& directory,
                                                            std::optional<DWORD> ignoredProcess)
{
    const DWORD self = GetCurrentProcessId();
    const wil::unique_tool_help_snapshot snapshot = TakeProcessSnapshotOrThrow();

    Processes lockingProcesses;
    const auto folder = GetCanonicalPath(directory);
    if (!folder)
    {
        return lockingProcesses; // no path lies in it
    }
    ForEachProcess(snapshot, [&](const PROCESSENTRY32W& process) {
        if (process.th32ProcessID != self && process.th32ProcessID != ignoredProcess)
        {
            AddIfImageIsInside(*folder, process, lockingProcesses);
        }
    });
    return lockingProcesses;
}

bool CheckDirectoryLocked(const std::wstring& directory, Logger& logger, bool silent, HWND owner,
                          std::optional<DWORD> ignoredProcess) noexcept
try
{
    logger.Info(L"[ClientHelper] Checking if directory is locked: " + directory);
    if (!FolderExists(directory))
    {
        logger.Info(L"[ClientHelper] Directory does not exist, cannot be locked!");
        return true;
    }
    const Processes lockingProcesses = FindProcessesLockingDirectory(directory, ignoredProcess);
    if (lockingProcesses.empty())
    {
        logger.Info(L"[ClientHelper] No processes found locking the directory.");
        return true;
    }
    const std::wstring list = LogProcesses(lockingProcesses, logger);
    if (silent)
    {
        logger.Info(L"[ClientHelper] Running as silent, cannot prompt user to terminate these processes, so "
                    L"terminating automatically...");
        return TerminateLockingProcesses(lockingProcesses, logger);
    }
    switch (const int button = PromptUser(list, logger, owner))
    {
    case IDCANCEL:
        logger.Info(L"[ClientHelper] User canceled the uninstaller.");
        return false;
    case IDRETRY:
        logger.Info(L"[ClientHelper] User prompted to retry...");
        return CheckDirectoryLocked(directory, logger, false, owner, ignoredProcess);
    case IDCONTINUE:
        return TerminateLockingProcesses(lockingProcesses, logger);
    default:
        // Despite the message: without the user's consent, nothing is terminated.
        logger.Warning(L"[ClientHelper] Unknown button event from task dialog, continuing with termination: " +
                           std::to_wstring(button),
                       false);
        return false;
    }
}
catch (const std::exception& exception)
{
    logger.Error(c_lockCheckFailed, exception.what(), true);
    return true;
}
catch (...)
{
    logger.Error(c_lockCheckFailed, "Unhandled Exception", true);
    return true;
}

} // namespace Installer
