#pragma once

#include "support/ImportTableFake.h"
#include "support/Text.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <winsvc.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Testing
{

// One service. It runs as process 1234 and, asked to stop or killed, does nothing, unless a test says otherwise:
//     manager.Add(L"Spooler").RunsAs(77).StopsAfter(1700);
class FakeService
{
public:
    explicit FakeService(VirtualClock& clock) : m_clock(clock) {}

    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    FakeService& RunsAs(DWORD processId)
    {
        status.dwProcessId = processId;
        return *this;
    }

    FakeService& Is(DWORD state)
    {
        status.dwCurrentState = state;
        return *this;
    }

    FakeService& IsStopped()
    {
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
        m_killsLeft = number;
        onKill = [this] {
            if (--m_killsLeft == 0)
            {
                IsStopped();
            }
        };
        return *this;
    }

    // What the service manager says about it.
    SERVICE_STATUS_PROCESS status{.dwServiceType = SERVICE_WIN32_OWN_PROCESS,
                                  .dwCurrentState = SERVICE_RUNNING,
                                  .dwControlsAccepted = SERVICE_ACCEPT_STOP,
                                  .dwWin32ExitCode = 21,
                                  .dwServiceSpecificExitCode = 22,
                                  .dwCheckPoint = 23,
                                  .dwWaitHint = 24,
                                  .dwProcessId = 1234,
                                  .dwServiceFlags = 25};

    // The state that a request to stop brings back, whatever the service manager says afterwards.
    DWORD stateBroughtBack = SERVICE_STOP_PENDING;

    std::function<void()> onStopRequest = [] {};
    std::function<void()> onKill = [] {};

private:
    VirtualClock& m_clock;
    unsigned m_killsLeft = 0;
};

// A service manager with the services that a test adds, and their processes. It gives no handle more rights than were
// asked for, fails where a test says so, and keeps a list of everything that was asked of it.
class FakeServiceManager
{
public:
    explicit FakeServiceManager(VirtualClock& clock) : m_clock(clock) {}

    FakeServiceManager(const FakeServiceManager&) = delete;
    FakeServiceManager& operator=(const FakeServiceManager&) = delete;

    FakeService& Add(const std::wstring& name) { return m_services.try_emplace(name, m_clock).first->second; }
    bool Has(const std::wstring& name) const { return m_services.contains(name); }

    // Lets a call, as it stands in Calls(), fail the next `times` times.
    void FailCall(const std::string& call, DWORD error, unsigned times = ~0U) { m_failures[call] = {error, times}; }

    // Every call and every pause so far: "open manager <access>", "open <service> <access>", "query <service> <level>
    // <size>", "control <service> <control> <level>", "delete <service>", "close manager", "close <service>", "open
    // process <id> <access>", "kill <id> <exit code>", "close process <id>", "sleep <milliseconds>". Accesses are
    // hexadecimal.
    const std::vector<std::string>& Calls()
    {
        NotePauses();
        return m_calls;
    }

    // How many handles are open now.
    std::size_t OpenHandles() const { return m_open.size(); }

    // What came with a request to stop.
    struct StopRequest
    {
        DWORD reason;
        std::wstring comment;
        SERVICE_STATUS_PROCESS status;
    };
    std::vector<StopRequest> stopRequests;

    // Is called with every call but the closing ones, as it stands in Calls().
    std::function<void(const std::string& call)> onCall = [](const std::string&) {};

private:
    enum class Kind
    {
        Manager,
        Service,
        Process,
    };

    struct Handle
    {
        Kind kind;
        std::wstring name; // of the service
        DWORD processId;
        DWORD access;
    };

    struct Failure
    {
        DWORD error;
        unsigned times;
    };

    void NotePauses()
    {
        for (; m_notedPauses < m_clock.Sleeps().size(); ++m_notedPauses)
        {
            m_calls.push_back("sleep " + std::to_string(m_clock.Sleeps()[m_notedPauses]));
        }
    }

    // Whether the call may succeed; otherwise the last error is set.
    bool Begin(const std::string& call)
    {
        NotePauses();
        m_calls.push_back(call);
        if (m_clock.Now() > c_endOfTime)
        {
            throw std::logic_error("a service is waited for without end");
        }
        onCall(call);
        const auto failure = m_failures.find(call);
        if (failure == m_failures.end() || failure->second.times == 0)
        {
            return true;
        }
        --failure->second.times;
        return Fail(failure->second.error);
    }

    static bool Fail(DWORD error)
    {
        SetLastError(error);
        return false;
    }

    template <class Type>
    Type Open(Handle handle)
    {
        // Far from what Windows gives out.
        m_nextHandle += 4;
        auto* const value = reinterpret_cast<void*>(m_nextHandle);
        m_open.emplace(value, std::move(handle));
        return reinterpret_cast<Type>(value);
    }

    // The open handle, which must be of that kind; null, and the test fails, when it is not.
    const Handle* Find(void* value, Kind kind) const
    {
        const auto found = m_open.find(value);
        if (found == m_open.end() || found->second.kind != kind)
        {
            ADD_FAILURE() << "a handle is used that is not open, or for something else";
            return nullptr;
        }
        return &found->second;
    }

    // The name of the service of an open handle, for the list of calls.
    std::string NameOf(void* value) const
    {
        const Handle* const handle = Find(value, Kind::Service);
        return handle == nullptr ? "?" : Narrow(handle->name);
    }

    // The service of a handle with that right; null, with the last error set, when it has not.
    FakeService* FindService(void* value, DWORD access)
    {
        const Handle* const handle = Find(value, Kind::Service);
        if (handle == nullptr || (handle->access & access) != access)
        {
            SetLastError(handle == nullptr ? ERROR_INVALID_HANDLE : ERROR_ACCESS_DENIED);
            return nullptr;
        }
        return &m_services.at(handle->name);
    }

    FakeService* FindService(DWORD processId)
    {
        for (auto& [name, service] : m_services)
        {
            if (processId != 0 && service.status.dwProcessId == processId)
            {
                return &service;
            }
        }
        return nullptr;
    }

    BOOL Close(void* value)
    {
        NotePauses();
        const auto found = m_open.find(value);
        if (found == m_open.end())
        {
            ADD_FAILURE() << "a handle is closed that is not open";
            return FALSE;
        }
        const Handle handle = std::move(found->second);
        m_open.erase(found);
        switch (handle.kind)
        {
        case Kind::Manager:
            m_calls.emplace_back("close manager");
            break;
        case Kind::Process:
            m_calls.push_back("close process " + std::to_string(handle.processId));
            break;
        case Kind::Service:
            m_calls.push_back("close " + Narrow(handle.name));
            break;
        }
        RemoveDeleted(handle.name);
        SetLastError(ERROR_BAD_COMMAND); // to show who asks too late
        return TRUE;
    }

    // A deleted service goes with the last handle on it.
    void RemoveDeleted(const std::wstring& name)
    {
        for (const auto& [value, handle] : m_open)
        {
            if (handle.kind == Kind::Service && handle.name == name)
            {
                return;
            }
        }
        if (m_deleted.erase(name) != 0)
        {
            m_services.erase(name);
        }
    }

    // Two hours, in milliseconds: no test lets anybody wait longer.
    static constexpr ULONGLONG c_endOfTime = 7'200'000;

    VirtualClock& m_clock;
    std::map<std::wstring, FakeService> m_services;
    std::set<std::wstring> m_deleted;
    std::map<void*, Handle> m_open;
    std::map<std::string, Failure> m_failures;
    std::vector<std::string> m_calls;
    std::size_t m_notedPauses = 0;
    ULONG_PTR m_nextHandle = 0x5CF00000;

    Fake<&OpenSCManagerW> m_openManager = [this](LPCWSTR machine, LPCWSTR database, DWORD access) -> SC_HANDLE {
        EXPECT_EQ(machine, nullptr);
        EXPECT_EQ(database, nullptr);
        return Begin("open manager " + Hex(access)) ? Open<SC_HANDLE>({Kind::Manager, {}, 0, access}) : nullptr;
    };
    Fake<&OpenServiceW> m_openService = [this](SC_HANDLE manager, LPCWSTR name, DWORD access) -> SC_HANDLE {
        Find(manager, Kind::Manager);
        if (!Begin("open " + Narrow(name) + " " + Hex(access)))
        {
            return nullptr;
        }
        if (!Has(name))
        {
            SetLastError(ERROR_SERVICE_DOES_NOT_EXIST);
            return nullptr;
        }
        return Open<SC_HANDLE>({Kind::Service, name, 0, access});
    };
    Fake<&CloseServiceHandle> m_closeService = [this](SC_HANDLE handle) { return Close(handle); };
    Fake<&QueryServiceStatusEx> m_query = [this](SC_HANDLE handle, SC_STATUS_TYPE level, LPBYTE buffer, DWORD size,
                                                 LPDWORD needed) -> BOOL {
        EXPECT_NE(needed, nullptr);
        if (!Begin("query " + NameOf(handle) + " " + std::to_string(level) + " " + std::to_string(size)))
        {
            return FALSE;
        }
        const FakeService* const service = FindService(handle, SERVICE_QUERY_STATUS);
        if (service == nullptr)
        {
            return FALSE;
        }
        *needed = sizeof(service->status);
        std::memcpy(buffer, &service->status, sizeof(service->status));
        return TRUE;
    };
    Fake<&ControlServiceExW> m_control = [this](SC_HANDLE handle, DWORD control, DWORD level, PVOID data) -> BOOL {
        if (!Begin("control " + NameOf(handle) + " " + std::to_string(control) + " " + std::to_string(level)))
        {
            return FALSE;
        }
        FakeService* const service = FindService(handle, SERVICE_STOP);
        if (service == nullptr)
        {
            return FALSE;
        }
        auto& parameters = *static_cast<SERVICE_CONTROL_STATUS_REASON_PARAMSW*>(data);
        stopRequests.push_back({parameters.dwReason, parameters.pszComment, parameters.ServiceStatus});
        service->onStopRequest();
        parameters.ServiceStatus = service->status;
        parameters.ServiceStatus.dwCurrentState = service->stateBroughtBack;
        return TRUE;
    };
    Fake<&DeleteService> m_delete = [this](SC_HANDLE handle) -> BOOL {
        if (!Begin("delete " + NameOf(handle)) || FindService(handle, DELETE) == nullptr)
        {
            return FALSE;
        }
        const bool isFirst = m_deleted.insert(m_open.at(handle).name).second;
        return isFirst || Fail(ERROR_SERVICE_MARKED_FOR_DELETE);
    };
    Fake<&OpenProcess> m_openProcess = [this](DWORD access, BOOL inherited, DWORD id) -> HANDLE {
        EXPECT_FALSE(inherited);
        if (!Begin("open process " + std::to_string(id) + " " + Hex(access)))
        {
            return nullptr;
        }
        if (FindService(id) == nullptr)
        {
            SetLastError(ERROR_INVALID_PARAMETER);
            return nullptr;
        }
        return Open<HANDLE>({Kind::Process, {}, id, access});
    };
    Fake<&TerminateProcess> m_terminate = [this](HANDLE value, UINT exitCode) -> BOOL {
        const Handle* const process = Find(value, Kind::Process);
        if (process == nullptr || !Begin("kill " + std::to_string(process->processId) + " " + std::to_string(exitCode)))
        {
            return FALSE;
        }
        if (FakeService* const service = FindService(process->processId))
        {
            service->onKill();
        }
        return TRUE;
    };
    // The runtime closes handles too: those are real.
    Fake<&CloseHandle> m_closeHandle = [this](HANDLE handle) {
        return m_open.contains(handle) ? Close(handle) : decltype(m_closeHandle)::Real(handle);
    };
};

} // namespace Testing
