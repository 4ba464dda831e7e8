#pragma once

#include "support/common/ImportTableFake.h"
#include "support/unit/FakeProcesses.h"
#include "support/unit/Handles.h"
#include "support/unit/Journal.h"
#include "support/unit/VirtualClock.h"

#include <windows.h>

#include <winsvc.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace Testing
{

// One service. It runs as a process of its own and, asked to stop or killed, does nothing, unless a test says
// otherwise:
//     manager.Add(L"Spooler").RunsAs({.id = 77}).StopsAfter(1700);
class FakeService
{
public:
    FakeService(VirtualClock& clock, FakeProcesses& processes, DWORD processId) : m_clock(clock), m_processes(processes)
    {
        RunsAs({.id = processId, .name = L"service.exe", .survives = true});
    }
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    // Runs as another process than before.
    FakeService& RunsAs(const FakeProcess& process)
    {
        m_processes.Remove(status.dwProcessId);
        m_processes.Add(process);
        status.dwProcessId = process.id;
        return *this;
    }

    FakeService& Is(DWORD state)
    {
        status.dwCurrentState = state;
        return *this;
    }

    // Its process ends with it.
    FakeService& IsStopped()
    {
        m_processes.Remove(status.dwProcessId);
        status.dwProcessId = 0;
        return Is(SERVICE_STOPPED);
    }

    // Stops some milliseconds after it is asked to, and is about to stop until then.
    FakeService& StopsAfter(ULONGLONG milliseconds)
    {
        onStopRequest = [this, milliseconds] {
            Is(SERVICE_STOP_PENDING);
            StopsAt(m_clock.Now() + milliseconds);
        };
        return *this;
    }

    // Stops at a time by itself.
    FakeService& StopsAt(ULONGLONG time)
    {
        m_clock.At(time, [this] { IsStopped(); });
        return *this;
    }

    // Stops when its process has been killed as many times from now on.
    FakeService& StopsAtKill(unsigned number)
    {
        onKill = [this, number]() mutable {
            if (--number == 0)
            {
                IsStopped();
            }
        };
        return *this;
    }

    // What the service manager says about it.
    SERVICE_STATUS_PROCESS status{
        SERVICE_WIN32_OWN_PROCESS, SERVICE_RUNNING, SERVICE_ACCEPT_STOP, 21, 22, 23, 24, 0, 25};

    // The state that a request to stop brings back, whatever the service manager says afterwards.
    DWORD stateBroughtBack = SERVICE_STOP_PENDING;

    std::function<void()> onStopRequest = [] {};
    std::function<void()> onKill = [] {};

private:
    friend class FakeServiceManager;

    // A deleted service goes with the last handle on it.
    bool IsGone() const { return m_isDeleted && m_use.use_count() == 1; }

    VirtualClock& m_clock;
    FakeProcesses& m_processes;
    bool m_isDeleted = false;
    std::shared_ptr<int> m_use = std::make_shared<int>(); // shared with every handle
};

// A service manager with the services that a test adds, whose processes are among those of the machine. It gives no
// handle more rights than were asked for. Journal:
//     OpenSCManagerW(machine, database, access), OpenServiceW(manager, "name", access), QueryServiceStatusEx(name)
//     ControlServiceExW(name, control, reason, "comment"), DeleteService(name), CloseServiceHandle(name)
class FakeServiceManager
{
public:
    FakeServiceManager(Journal& journal, Handles& handles, FakeProcesses& processes, VirtualClock& clock)
        : m_journal(journal),
          m_handles(handles),
          m_processes(processes),
          m_clock(clock)
    {
        processes.onTerminate = [this](DWORD id) {
            for (auto& [name, service] : m_services)
            {
                if (service.status.dwProcessId == id)
                {
                    service.onKill();
                }
            }
        };
    }
    FakeServiceManager(const FakeServiceManager&) = delete;
    FakeServiceManager& operator=(const FakeServiceManager&) = delete;

    // The service of that name, which is made unless there is one. The first one runs as process 1234.
    FakeService& Add(const std::wstring& name)
    {
        if (!Has(name))
        {
            m_services.erase(name);
            m_services.try_emplace(name, m_clock, m_processes, m_nextProcess++);
        }
        return m_services.at(name);
    }

    bool Has(const std::wstring& name) const
    {
        const auto found = m_services.find(name);
        return found != m_services.end() && !found->second.IsGone();
    }

private:
    struct OpenedManager
    {
    };

    struct OpenedService
    {
        FakeService* service;
        DWORD access;
        std::shared_ptr<int> use;
    };

    // Notes a call for an opened service. Null, with the last error, when it fails or the handle has not that right.
    template <class... Arguments>
    FakeService* Begin(const char* function, DWORD right, SC_HANDLE handle, const Arguments&... arguments)
    {
        const auto* const opened = m_handles.Find<OpenedService>(handle);
        DWORD error = m_journal.Add(function, m_handles.NameOf(handle), arguments...);
        if (opened == nullptr || (opened->access & right) == 0)
        {
            error = opened == nullptr ? ERROR_INVALID_HANDLE : ERROR_ACCESS_DENIED;
        }
        return Succeeds(error) ? opened->service : nullptr;
    }

    // Why a service in that state takes no request.
    static DWORD RefusalIn(DWORD state)
    {
        return state == SERVICE_STOPPED                                          ? ERROR_SERVICE_NOT_ACTIVE
               : state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING ? ERROR_SERVICE_CANNOT_ACCEPT_CTRL
                                                                                 : ERROR_SUCCESS;
    }

    Journal& m_journal;
    Handles& m_handles;
    FakeProcesses& m_processes;
    VirtualClock& m_clock;
    std::map<std::wstring, FakeService> m_services;
    DWORD m_nextProcess = 1234;

    Fake<&OpenSCManagerW> m_openManager = [this](LPCWSTR machine, LPCWSTR database, DWORD access) {
        const bool isOpen = Succeeds(m_journal.Add("OpenSCManagerW", machine, database, Mask(access)));
        return static_cast<SC_HANDLE>(isOpen ? m_handles.Make("manager", OpenedManager{}, "CloseServiceHandle")
                                             : nullptr);
    };
    Fake<&OpenServiceW> m_openService = [this](SC_HANDLE manager, LPCWSTR name, DWORD access) -> SC_HANDLE {
        DWORD error = m_journal.Add("OpenServiceW", m_handles.NameOf(manager), name, Mask(access));
        if (m_handles.Find<OpenedManager>(manager) == nullptr)
        {
            error = ERROR_INVALID_HANDLE;
        }
        else if (error == ERROR_SUCCESS && !Has(name))
        {
            error = ERROR_SERVICE_DOES_NOT_EXIST;
        }
        if (!Succeeds(error))
        {
            return nullptr;
        }
        FakeService& service = m_services.at(name);
        return static_cast<SC_HANDLE>(
            m_handles.Make(Narrow(name), OpenedService{&service, access, service.m_use}, "CloseServiceHandle"));
    };
    Fake<&CloseServiceHandle> m_close = [this](SC_HANDLE handle) -> BOOL {
        return m_handles.Close(handle, "CloseServiceHandle");
    };
    Fake<&QueryServiceStatusEx> m_query = [this](SC_HANDLE handle, SC_STATUS_TYPE level, LPBYTE buffer, DWORD size,
                                                 LPDWORD needed) -> BOOL {
        const FakeService* const service = Begin("QueryServiceStatusEx", SERVICE_QUERY_STATUS, handle);
        if (service == nullptr)
        {
            return FALSE;
        }
        if (level != SC_STATUS_PROCESS_INFO || needed == nullptr || size < sizeof(service->status))
        {
            return Succeeds(level != SC_STATUS_PROCESS_INFO ? ERROR_INVALID_LEVEL
                            : needed == nullptr             ? ERROR_INVALID_PARAMETER
                                                            : ERROR_INSUFFICIENT_BUFFER);
        }
        *needed = sizeof(service->status);
        std::memcpy(buffer, &service->status, sizeof(service->status));
        return TRUE;
    };
    Fake<&ControlServiceExW> m_control = [this](SC_HANDLE handle, DWORD control, DWORD level, PVOID data) -> BOOL {
        EXPECT_EQ(level, DWORD{SERVICE_CONTROL_STATUS_REASON_INFO});
        auto& parameters = *static_cast<SERVICE_CONTROL_STATUS_REASON_PARAMSW*>(data);
        FakeService* const service =
            Begin("ControlServiceExW", SERVICE_STOP, handle, control, Mask(parameters.dwReason), parameters.pszComment);
        if (service == nullptr || !Succeeds(RefusalIn(service->status.dwCurrentState)))
        {
            return FALSE;
        }
        EXPECT_EQ(std::memcmp(&parameters.ServiceStatus, &service->status, sizeof(service->status)), 0)
            << "not the status that was queried";
        service->onStopRequest();
        parameters.ServiceStatus = service->status;
        parameters.ServiceStatus.dwCurrentState = service->stateBroughtBack;
        return TRUE;
    };
    Fake<&DeleteService> m_delete = [this](SC_HANDLE handle) -> BOOL {
        FakeService* const service = Begin("DeleteService", DELETE, handle);
        if (service == nullptr || !Succeeds(service->m_isDeleted ? ERROR_SERVICE_MARKED_FOR_DELETE : ERROR_SUCCESS))
        {
            return FALSE;
        }
        service->m_isDeleted = true;
        return TRUE;
    };
};

} // namespace Testing
