#include "support/end_to_end/Services.h"

#include "support/end_to_end/Names.h"
#include "support/end_to_end/Wine.h"

namespace Testing
{
UniqueService OpenServiceManager(DWORD access)
{
    UniqueService manager(OpenSCManagerW(nullptr, nullptr, access));
    if (!manager)
    {
        ThrowWindowsError("Cannot open the service manager", GetLastError());
    }
    return manager;
}

UniqueService OpenServiceOf(const std::wstring& name, DWORD access)
{
    UniqueService manager = OpenServiceManager(SC_MANAGER_CONNECT);
    UniqueService service(OpenServiceW(manager.get(), name.c_str(), access));
    const DWORD error = GetLastError();
    // Closing the manager must not hide the reason.
    manager.reset();
    SetLastError(error);
    return service;
}

std::optional<SERVICE_STATUS_PROCESS> QueryService(const std::wstring& name)
{
    const UniqueService service = OpenServiceOf(name, SERVICE_QUERY_STATUS);
    if (!service)
    {
        if (const DWORD error = GetLastError(); error != ERROR_SERVICE_DOES_NOT_EXIST)
        {
            ThrowWindowsError("Cannot open the service " + ToUtf8(name), error);
        }
        return std::nullopt;
    }
    SERVICE_STATUS_PROCESS status{};
    DWORD size = 0;
    if (!QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof(status),
                              &size))
    {
        ThrowWindowsError("Cannot query the service " + ToUtf8(name), GetLastError());
    }
    return status;
}

void ReportStopped(const std::wstring& name)
{
    if (!IsWine())
    {
        return;
    }
    constexpr DWORD c_setStatus = 0x8000; // the right to tell a service's state, which Windows' headers do not name
    const UniqueService service = OpenServiceOf(name, c_setStatus);
    SERVICE_STATUS status{};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = SERVICE_STOPPED;
    status.dwWin32ExitCode = ERROR_PROCESS_ABORTED;
    // Wine takes the handle of an opened service for the one that the service itself would use.
    SetServiceStatus(reinterpret_cast<SERVICE_STATUS_HANDLE>(service.get()), &status);
}
} // namespace Testing
