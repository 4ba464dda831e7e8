#include "Installer/ClientHelper.h"

#include "Installer/CanonicalPath.h"
#include "Installer/Common.h"
#include "Installer/Logger.h"
#include "Installer/Path.h"
#include "Installer/ProcessSnapshot.h"
#include "Installer/Retry.h"
#include "Installer/Text.h"

#include <commctrl.h>

#include <wil/resource.h>
#include <wil/result.h>
#include <wil/win32_helpers.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Installer
{

namespace
{

// The file names of the clients, to the letter.
constexpr std::wstring_view c_clientNames[] = {L"Orvane.exe", L"Velmora.exe"};

// How a client is asked to close: by a command to the window behind its icon in the notification area.
constexpr std::wstring_view c_handlerClassPrefix = L"Velmora_NotifyIcon_Handler_";
constexpr int c_classNameSize = 512;
constexpr WPARAM c_closeCommand = 50001;

// How the end of the clients is waited for, after they were asked as after they were terminated.
constexpr RetryPolicy c_waitForEnd{.attempts = 10, .pauseMilliseconds = 1000, .pausesAfterLastAttempt = true};

constexpr UINT c_terminatedExitCode = 0;

// The program's own icon, in its resources.
constexpr WORD c_applicationIcon = 101;

// Why a process could not be opened to be terminated. The client is not the only one that these are about.
constexpr wchar_t c_differentUser[] =
    L"[ClientHelper] This process is likely running under a different user account. We cannot close this without "
    L"resorting to... undesirable methods. Restart the system to continue.";
constexpr wchar_t c_alreadyClosed[] =
    L"[ClientHelper] Unable to open process, assuming it has closed at some point since last check...";
constexpr wchar_t c_openFailed[] = L"[ClientHelper] Failed to open Velmora process for termination: ";

HRESULT LastResult()
{
    return HRESULT_FROM_WIN32(GetLastError());
}

// Memory may have run out; then there is no line.
void LogException(Logger& logger, const wchar_t* text, const char* what, bool capture) noexcept
try
{
    logger.Error(text + WidenExceptionText(what), capture);
}
CATCH_LOG()

wil::unique_process_handle OpenToTerminate(DWORD id)
{
    return wil::unique_process_handle(OpenProcess(PROCESS_TERMINATE, FALSE, id));
}

// Logs why a process could not be opened. Returns whether it is likely to be gone already.
bool LogFailureToOpen(Logger& logger, HRESULT result, bool capture)
{
    switch (result)
    {
    case E_ACCESSDENIED:
        logger.Warning(c_differentUser, false);
        return false;
    case E_INVALIDARG:
        logger.Warning(c_alreadyClosed, false);
        return true;
    default:
        logger.Error(c_openFailed + std::to_wstring(result), capture);
        return false;
    }
}

bool IsClient(std::wstring_view fileName)
{
    return std::ranges::find(c_clientNames, fileName) != std::end(c_clientNames);
}

std::set<HWND> FindTopLevelWindows(DWORD process)
{
    std::set<HWND> windows;
    for (HWND window = GetTopWindow(nullptr); window != nullptr; window = GetWindow(window, GW_HWNDNEXT))
    {
        DWORD owner = 0;
        GetWindowThreadProcessId(window, &owner);
        if (owner == process)
        {
            windows.insert(window);
        }
    }
    return windows;
}

bool IsNotifyIconHandler(HWND window)
{
    std::array<wchar_t, c_classNameSize> name{};
    const int length = GetClassNameW(window, name.data(), c_classNameSize);
    return std::wstring_view(name.data(), static_cast<std::size_t>(length)).starts_with(c_handlerClassPrefix);
}

void AskToClose(DWORD client, Logger& logger)
{
    logger.Info(L"[ClientHelper] Found running Velmora process! (" + std::to_wstring(client) +
                L"). Attempting to gracefully stop it...");
    for (HWND window : FindTopLevelWindows(client))
    {
        if (!IsNotifyIconHandler(window))
        {
            continue;
        }
        logger.Info(L"[ClientHelper] Attempting to close Velmora via notify icon handler...");
        if (!PostMessageW(window, WM_COMMAND, c_closeCommand, 0))
        {
            logger.Warning(L"[ClientHelper] Failed to send message: " + std::to_wstring(LastResult()), false);
        }
    }
}

// Returns the clients that the last look found: none when all have ended.
std::set<DWORD> WaitForEndOfClients()
{
    std::set<DWORD> clients;
    Retry(c_waitForEnd, [&] {
        clients = FindRunningClientProcesses();
        return clients.empty() ? S_OK : S_FALSE;
    });
    return clients;
}

void TerminateClient(DWORD client, Logger& logger)
{
    logger.Info(L"[ClientHelper] Velmora process still running after graceful shutdown attempt. (" +
                std::to_wstring(client) + L"). Attempting to force close...");
    const wil::unique_process_handle process = OpenToTerminate(client);
    if (!process)
    {
        LogFailureToOpen(logger, LastResult(), false);
    }
    else if (TerminateProcess(process.get(), c_terminatedExitCode))
    {
        logger.Info(L"[ClientHelper] Velmora process forcefully terminated.");
    }
    else
    {
        logger.Error(L"[ClientHelper] Failed to forcefully terminate Velmora process: " + std::to_wstring(LastResult()),
                     false);
    }
}

} // namespace

std::set<DWORD> FindRunningClientProcesses()
{
    const DWORD self = GetCurrentProcessId();
    const wil::unique_tool_help_snapshot snapshot = TakeProcessSnapshot();
    THROW_LAST_ERROR_IF(!snapshot);

    std::set<DWORD> clients;
    ForEachProcess(snapshot, [&](const PROCESSENTRY32W& process) {
        if (process.th32ProcessID != self && IsClient(process.szExeFile))
        {
            clients.insert(process.th32ProcessID);
        }
    });
    return clients;
}

bool StopRunningClient(Logger& logger)
try
{
    const std::set<DWORD> found = FindRunningClientProcesses();
    if (found.empty())
    {
        return true;
    }
    for (const DWORD client : found)
    {
        AskToClose(client, logger);
    }

    const std::set<DWORD> remaining = WaitForEndOfClients();
    if (remaining.empty())
    {
        logger.Info(L"[ClientHelper] Velmora process has terminated successfully.");
        return true;
    }
    for (const DWORD client : remaining)
    {
        TerminateClient(client, logger);
    }

    if (WaitForEndOfClients().empty())
    {
        logger.Info(L"[ClientHelper] Velmora process has been successfully terminated.");
        return true;
    }
    logger.Error(L"[ClientHelper] Velmora process is still running after force termination attempt.", false);
    return false;
}
catch (const std::exception& exception)
{
    LogException(logger, L"[ClientHelper] Unable to stop running processes: ", exception.what(), false);
    return false;
}

namespace
{

// Processes by id, with the names of their files.
using Processes = std::map<DWORD, std::wstring>;

constexpr wchar_t c_lockCheckFailed[] = L"[ClientHelper] Unable to determine if processes are locking directory: ";

// Adds the process if its program file lies in the folder, which is given canonically, or below it. Returns whether it
// is new among the processes; one that cannot be examined is not added.
bool AddIfStartedFrom(const std::wstring& folder, const PROCESSENTRY32W& entry, Processes& processes) noexcept
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

// Logs the processes. Returns them as the dialog names them: one after another, on one line.
std::wstring ListProcesses(const Processes& processes, Logger& logger)
{
    logger.Warning(L"[ClientHelper] The following processes were found locking the directory:", false);
    std::wstring list;
    for (const auto& [id, name] : processes)
    {
        list += L'[' + std::to_wstring(id) + L"] " + name;
        logger.Warning(L"                 - " + name + L" (Pid: " + std::to_wstring(id) + L')', false);
    }
    std::erase(list, L'\n'); // not even a file's name breaks the line
    return list;
}

// Asks the user what to do about the processes. Returns the button, which is "Continue" when the user cannot be asked.
int AskUser(const std::wstring& list, Logger& logger, HWND owner)
{
    constexpr std::array buttons{TASKDIALOG_BUTTON{IDRETRY, L"Retry"}, TASKDIALOG_BUTTON{IDCONTINUE, L"Continue"},
                                 TASKDIALOG_BUTTON{IDCANCEL, L"Cancel"}};
    TASKDIALOGCONFIG dialog{};
    dialog.cbSize = sizeof(dialog);
    dialog.hwndParent = owner;
    dialog.hInstance = GetModuleHandleW(nullptr);
    dialog.dwFlags = TDF_SIZE_TO_CONTENT;
    dialog.pszWindowTitle = L"Velmora";
    dialog.pszMainIcon = MAKEINTRESOURCEW(c_applicationIcon);
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

// Returns whether the process is gone, as far as can be told, or about to go.
bool TerminateLocker(DWORD id, const std::wstring& name, Logger& logger)
{
    logger.Info(L"[ClientHelper] Terminating " + name + L"...");
    const wil::unique_process_handle process = OpenToTerminate(id);
    if (!process)
    {
        return LogFailureToOpen(logger, LastResult(), true);
    }
    if (TerminateProcess(process.get(), c_terminatedExitCode))
    {
        logger.Info(L"[ClientHelper] Success!");
        return true;
    }
    const HRESULT result = LastResult();
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

bool TerminateLockers(const Processes& lockers, Logger& logger)
{
    logger.Info(L"[ClientHelper] Attempting to terminate processes...");
    bool areGone = true;
    for (const auto& [id, name] : lockers)
    {
        areGone = TerminateLocker(id, name, logger) && areGone;
    }
    return areGone;
}

} // namespace

std::map<DWORD, std::wstring> FindProcessesLockingDirectory(const std::wstring& directory, std::optional<DWORD> starter)
{
    const DWORD self = GetCurrentProcessId();
    const wil::unique_tool_help_snapshot snapshot = TakeProcessSnapshot();
    THROW_LAST_ERROR_IF(!snapshot);

    Processes lockers;
    const auto folder = GetCanonicalPath(directory);
    if (!folder)
    {
        return lockers; // nothing can be compared with it
    }
    ForEachProcess(snapshot, [&](const PROCESSENTRY32W& process) {
        if (process.th32ProcessID != self && process.th32ProcessID != starter)
        {
            AddIfStartedFrom(*folder, process, lockers);
        }
    });
    return lockers;
}

bool CheckDirectoryLocked(const std::wstring& directory, Logger& logger, bool silent, HWND owner,
                          std::optional<DWORD> starter) noexcept
try
{
    logger.Info(L"[ClientHelper] Checking if directory is locked: " + directory);
    if (!FolderExists(directory))
    {
        logger.Info(L"[ClientHelper] Directory does not exist, cannot be locked!");
        return true;
    }
    const Processes lockers = FindProcessesLockingDirectory(directory, starter);
    if (lockers.empty())
    {
        logger.Info(L"[ClientHelper] No processes found locking the directory.");
        return true;
    }
    const std::wstring list = ListProcesses(lockers, logger);
    if (silent)
    {
        logger.Info(L"[ClientHelper] Running as silent, cannot prompt user to terminate these processes, so "
                    L"terminating automatically...");
        return TerminateLockers(lockers, logger);
    }
    switch (const int button = AskUser(list, logger, owner))
    {
    case IDCANCEL:
        logger.Info(L"[ClientHelper] User canceled the uninstaller.");
        return false;
    case IDRETRY:
        logger.Info(L"[ClientHelper] User prompted to retry...");
        return CheckDirectoryLocked(directory, logger, false, owner, starter);
    case IDCONTINUE:
        return TerminateLockers(lockers, logger);
    default:
        // Nothing is terminated that the user did not agree to, whatever the line says.
        logger.Warning(L"[ClientHelper] Unknown button event from task dialog, continuing with termination: " +
                           std::to_wstring(button),
                       false);
        return false;
    }
}
catch (const std::exception& exception)
{
    LogException(logger, c_lockCheckFailed, exception.what(), true);
    return true;
}
catch (...)
{
    LogException(logger, c_lockCheckFailed, "Unhandled Exception", true);
    return true;
}

} // namespace Installer
