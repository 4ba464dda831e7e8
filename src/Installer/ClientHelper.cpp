#include "Installer/ClientHelper.h"

#include "Installer/Logger.h"
#include "Installer/ProcessSnapshot.h"
#include "Installer/ProcessTermination.h"
#include "Installer/Retry.h"

#include <wil/resource.h>
#include <wil/result.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <iterator>
#include <set>
#include <string>
#include <string_view>

namespace Installer
{

namespace
{

// The clients' executables; the comparison is case-sensitive.
constexpr std::wstring_view c_clientNames[] = {L"Orvane.exe", L"Velmora.exe"};

// A client closes on this WM_COMMAND to its notification icon's window.
constexpr std::wstring_view c_handlerClassPrefix = L"Velmora_NotifyIcon_Handler_";
constexpr int c_classNameSize = 512;
constexpr WPARAM c_closeCommand = 50001;

// The wait for the clients' exit, after the close request and after the termination.
constexpr RetryPolicy c_waitForExit{.attempts = 10, .pauseMilliseconds = 1000, .pausesAfterLastAttempt = true};

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

void RequestClose(DWORD client, Logger& logger)
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
            logger.Warning(L"[ClientHelper] Failed to send message: " +
                               std::to_wstring(HRESULT_FROM_WIN32(GetLastError())),
                           false);
        }
    }
}

// Returns the clients that still run.
std::set<DWORD> WaitForClientsToExit()
{
    std::set<DWORD> clients;
    Retry(c_waitForExit, [&] {
        clients = FindRunningClientProcesses();
        return clients.empty() ? S_OK : S_FALSE;
    });
    return clients;
}

void TerminateClient(DWORD client, Logger& logger)
{
    logger.Info(L"[ClientHelper] Velmora process still running after graceful shutdown attempt. (" +
                std::to_wstring(client) + L"). Attempting to force close...");
    const wil::unique_process_handle process = OpenForTermination(client);
    if (!process)
    {
        LogOpenFailure(logger, HRESULT_FROM_WIN32(GetLastError()), false);
    }
    else if (Terminate(process))
    {
        logger.Info(L"[ClientHelper] Velmora process forcefully terminated.");
    }
    else
    {
        logger.Error(L"[ClientHelper] Failed to forcefully terminate Velmora process: " +
                         std::to_wstring(HRESULT_FROM_WIN32(GetLastError())),
                     false);
    }
}

} // namespace

wil::unique_tool_help_snapshot TakeProcessSnapshotOrThrow()
{
    wil::unique_tool_help_snapshot snapshot = TakeProcessSnapshot();
    THROW_LAST_ERROR_IF(!snapshot);
    return snapshot;
}

std::set<DWORD> FindRunningClientProcesses()
{
    const DWORD self = GetCurrentProcessId();
    const wil::unique_tool_help_snapshot snapshot = TakeProcessSnapshotOrThrow();

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
        RequestClose(client, logger);
    }

    const std::set<DWORD> remaining = WaitForClientsToExit();
    if (remaining.empty())
    {
        logger.Info(L"[ClientHelper] Velmora process has terminated successfully.");
        return true;
    }
    for (const DWORD client : remaining)
    {
        TerminateClient(client, logger);
    }

    if (WaitForClientsToExit().empty())
    {
        logger.Info(L"[ClientHelper] Velmora process has been successfully terminated.");
        return true;
    }
    logger.Error(L"[ClientHelper] Velmora process is still running after force termination attempt.", false);
    return false;
}
catch (const std::exception& exception)
{
    logger.Error(L"[ClientHelper] Unable to stop running processes: ", exception.what(), false);
    return false;
}

} // namespace Installer
