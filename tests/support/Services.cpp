#include "support/Services.h"

#include "support/Names.h"
#include "support/Wine.h"
#include "support/product/Product.h"

#include <algorithm>

namespace Testing
{
namespace
{
// The right to tell a service's state, which Windows' headers do not name.
constexpr DWORD c_setStatus = 0x8000;

// The process of a service that has not said that it stopped; nothing when there is no such service.
std::optional<DWORD> ActiveProcessOf(const std::wstring& name)
{
    const auto status = QueryService(name);
    return status && status->dwCurrentState != SERVICE_STOPPED ? std::optional(status->dwProcessId) : std::nullopt;
}
} // namespace

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
    const UniqueService service = OpenServiceOf(name, c_setStatus);
    SERVICE_STATUS status{};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = SERVICE_STOPPED;
    status.dwWin32ExitCode = ERROR_PROCESS_ABORTED;
    // Wine takes the handle of an opened service for the one that the service itself would use.
    SetServiceStatus(reinterpret_cast<SERVICE_STATUS_HANDLE>(service.get()), &status);
}

ServiceWatch::ServiceWatch()
{
    for (const std::wstring_view name : c_productServices)
    {
        if (const auto id = ActiveProcessOf(std::wstring(name)))
        {
            m_running.push_back({std::wstring(name), *id, UniqueHandle(OpenProcess(SYNCHRONIZE, FALSE, *id))});
        }
    }
}

void ServiceWatch::Look()
{
    std::erase_if(m_running, [](const Watched& service) {
        if (service.process && WaitForSingleObject(service.process.get(), 0) == WAIT_TIMEOUT)
        {
            return false;
        }
        // It may have said so itself, or have been started again.
        if (ActiveProcessOf(service.name) == service.processId)
        {
            ReportStopped(service.name);
        }
        return true;
    });
}
} // namespace Testing
