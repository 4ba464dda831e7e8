#include "Installer/Service.h"

#include "Installer/ProcessTermination.h"

#include <winsvc.h>

#include <wil/resource.h>
#include <wil/result.h>

#include <array>
#include <string>

namespace Installer
{

namespace
{

// Polling of a stopping service.
constexpr DWORD c_pollMilliseconds = 500;
constexpr int c_pollsBeforeKill = 20; // since the stop request or the last termination
constexpr int c_maxKills = 3;         // one more fails with E_ABORT

// The process outlives the SERVICE_STOPPED state for a moment, and locks its executable until it exits.
constexpr DWORD c_pauseAfterStopMilliseconds = 1000;

// A service is deleted when its last handle is closed: time for other programs to close theirs.
constexpr DWORD c_pauseAfterDeletionMilliseconds = 5000;

// The stop reason in the system's event log.
constexpr DWORD c_stopReason =
    SERVICE_STOP_REASON_FLAG_PLANNED | SERVICE_STOP_REASON_MAJOR_APPLICATION | SERVICE_STOP_REASON_MINOR_INSTALLATION;
constexpr auto c_stopComment = std::to_array(L"Stopping to perform install/uninstall.");

wil::unique_schandle ConnectToServiceManager()
{
    return wil::unique_schandle(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
}

wil::unique_schandle OpenServiceFor(DWORD access, const wil::unique_schandle& manager, const std::wstring& name)
{
    return wil::unique_schandle(OpenServiceW(manager.get(), name.c_str(), access));
}

// FALSE on failure, with the last error set.
BOOL QueryStatus(const wil::unique_schandle& service, SERVICE_STATUS_PROCESS& status)
{
    static_assert(sizeof(status) == 36);
    DWORD needed = 0;
    return QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof(status),
                                &needed);
}

// FALSE on failure, with the last error set. The status that it returns is not used: WaitUntilStopped queries it.
BOOL RequestStop(const wil::unique_schandle& service, const SERVICE_STATUS_PROCESS& status)
{
    auto comment = c_stopComment; // pszComment is not const
    SERVICE_CONTROL_STATUS_REASON_PARAMSW parameters{
        .dwReason = c_stopReason, .pszComment = comment.data(), .ServiceStatus = status};
    return ControlServiceExW(service.get(), SERVICE_CONTROL_STOP, SERVICE_CONTROL_STATUS_REASON_INFO, &parameters);
}

HRESULT WaitUntilStopped(const wil::unique_schandle& service, SERVICE_STATUS_PROCESS status)
{
    int polls = 0;
    int kills = 0;
    while (status.dwCurrentState != SERVICE_STOPPED)
    {
        Sleep(c_pollMilliseconds);
        RETURN_IF_WIN32_BOOL_FALSE(QueryStatus(service, status));
        ++polls;
        if (polls < c_pollsBeforeKill)
        {
            continue;
        }
        const wil::unique_process_handle process = OpenForTermination(status.dwProcessId);
        if (!process)
        {
            continue; // retried at the next poll
        }
        RETURN_IF_WIN32_BOOL_FALSE(Terminate(process));
        ++kills;
        if (kills > c_maxKills)
        {
            return E_ABORT;
        }
        polls = 0;
    }
    Sleep(c_pauseAfterStopMilliseconds);
    return S_OK;
}

} // namespace

// The three are not noexcept: StopServices logs exceptions.

bool ServiceExists(const std::wstring& name)
{
    const wil::unique_schandle manager = ConnectToServiceManager();
    return manager && OpenServiceFor(SERVICE_QUERY_STATUS, manager, name);
}

HRESULT StopService(const std::wstring& name)
{
    const wil::unique_schandle manager = ConnectToServiceManager();
    RETURN_LAST_ERROR_IF_NULL(manager);
    const wil::unique_schandle service = OpenServiceFor(SERVICE_QUERY_STATUS | SERVICE_STOP, manager, name);
    RETURN_LAST_ERROR_IF_NULL(service);

    SERVICE_STATUS_PROCESS status{};
    RETURN_IF_WIN32_BOOL_FALSE(QueryStatus(service, status));
    if (status.dwCurrentState == SERVICE_STOPPED)
    {
        return S_OK;
    }
    if (status.dwCurrentState != SERVICE_STOP_PENDING)
    {
        RETURN_IF_WIN32_BOOL_FALSE(RequestStop(service, status));
    }
    return WaitUntilStopped(service, status);
}

HRESULT RemoveService(const std::wstring& name)
{
    const wil::unique_schandle manager = ConnectToServiceManager();
    RETURN_LAST_ERROR_IF_NULL(manager);
    const wil::unique_schandle service = OpenServiceFor(DELETE, manager, name);
    if (!service)
    {
        return S_OK;
    }
    RETURN_IF_WIN32_BOOL_FALSE(DeleteService(service.get()));
    Sleep(c_pauseAfterDeletionMilliseconds);
    return S_OK;
}

} // namespace Installer
