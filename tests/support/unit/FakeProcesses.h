#pragma once

#include "support/common/ImportTableFake.h"
#include "support/unit/Handles.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <tlhelp32.h>

#include <gtest/gtest.h>

#include <cwchar>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Testing
{

// The id of the process that the tests stand for.
inline constexpr DWORD c_self = 4711;

struct FakeProcess
{
    DWORD id = 0;
    std::wstring name{};
    DWORD session = 1;
    std::wstring image{};           // the full path of its file
    bool survives = false;          // does not end although it is terminated
    DWORD parent = 0;               // the process that started it
    ULONGLONG created = 0;          // when that was
    bool endsWhenWaitedFor = false; // within the time that somebody waits for its end
    bool isForDebuggers = false;    // denies access to all others
};

// An access token that was opened.
struct FakeToken
{
    DWORD process;
    DWORD access;
};

// The processes of the machine, as snapshots show them and as they are opened:
//     processes.Add({.id = 40, .name = L"explorer.exe", .session = 2});
// The idle process comes first; the others follow in the order in which they were added. A process's handle has the
// name of its id, its token that of "token of <id>". Journal:
//     CreateToolhelp32Snapshot(flags, id), Process32FirstW(snapshot), Process32NextW(snapshot)
//     OpenProcess(access, id), QueryFullProcessImageNameW(id, flags), GetProcessTimes(id)
//     WaitForSingleObject(id, milliseconds), TerminateProcess(id, exit code), OpenProcessToken(id, access)
//     WTSGetActiveConsoleSessionId(), ProcessIdToSessionId(id)
class FakeProcesses
{
public:
    FakeProcesses(Journal& journal, Handles& handles) : m_journal(journal), m_handles(handles) {}
    FakeProcesses(const FakeProcesses&) = delete;
    FakeProcesses& operator=(const FakeProcesses&) = delete;

    void Add(const FakeProcess& process) { m_processes.push_back(process); }

    // Makes another process the first one.
    void PutFirst(const FakeProcess& process) { m_processes.front() = process; }

    // Ends a process. What is open of it stays open, and snapshots taken before still show it.
    void Remove(DWORD id)
    {
        std::erase_if(m_processes, [=](const FakeProcess& process) { return process.id == id; });
    }

    // The process of that id; nothing when there is none.
    std::optional<FakeProcess> Find(DWORD id) const
    {
        for (const FakeProcess& process : m_processes)
        {
            if (process.id == id)
            {
                return process;
            }
        }
        return std::nullopt;
    }

    // The session on the console.
    DWORD consoleSession = 1;

    // Whether this process may debug others.
    std::function<bool()> isDebugging = [] { return false; };

    // Is told of every process that is terminated.
    std::function<void(DWORD id)> onTerminate = [](DWORD) {};

private:
    struct Opened
    {
        DWORD id;
        DWORD access;
    };

    struct Snapshot
    {
        std::vector<FakeProcess> processes;
        std::size_t next = 0;
    };

    static DWORD QueryRights(DWORD access)
    {
        // The one includes the other.
        return (access & PROCESS_QUERY_INFORMATION) != 0 ? access | PROCESS_QUERY_LIMITED_INFORMATION : access;
    }

    // Notes a call for an opened process, or this one. Returns the process that it is for when the handle has the
    // right, and otherwise sets the last error.
    template <class... Arguments>
    std::optional<DWORD> Begin(const char* function, DWORD right, HANDLE process, const Arguments&... arguments)
    {
        const bool isOwn = process == GetCurrentProcess();
        const auto* const opened = isOwn ? nullptr : m_handles.Find<Opened>(process);
        DWORD error = m_journal.Add(function, isOwn ? "this process" : m_handles.NameOf(process), arguments...);
        if (!isOwn && opened == nullptr)
        {
            error = ERROR_INVALID_HANDLE;
        }
        else if (!isOwn && (QueryRights(opened->access) & right) == 0)
        {
            error = ERROR_ACCESS_DENIED;
        }
        return Succeeds(error) ? std::optional(isOwn ? c_self : opened->id) : std::nullopt;
    }

    BOOL Read(Snapshot* snapshot, PROCESSENTRY32W& entry, DWORD error)
    {
        if (snapshot == nullptr || entry.dwSize != sizeof(entry))
        {
            error = snapshot == nullptr ? ERROR_INVALID_HANDLE : ERROR_BAD_LENGTH;
        }
        else if (error == ERROR_SUCCESS && snapshot->next == snapshot->processes.size())
        {
            error = ERROR_NO_MORE_FILES;
        }
        if (!Succeeds(error))
        {
            return FALSE;
        }
        const FakeProcess& process = snapshot->processes[snapshot->next++];
        entry.th32ProcessID = process.id;
        entry.th32ParentProcessID = process.parent;
        std::wmemcpy(entry.szExeFile, process.name.c_str(), process.name.size() + 1);
        return TRUE;
    }

    Journal& m_journal;
    Handles& m_handles;
    std::vector<FakeProcess> m_processes{{.id = 0, .name = L"[System Process]", .session = 0}};

    Fake<&GetCurrentProcessId> m_self = []() -> DWORD { return c_self; };
    Fake<&CreateToolhelp32Snapshot> m_snapshot = [this](DWORD flags, DWORD id) -> HANDLE {
        return Succeeds(m_journal.Add("CreateToolhelp32Snapshot", Mask(flags), id))
                   ? m_handles.Make("snapshot", Snapshot{.processes = m_processes})
                   : INVALID_HANDLE_VALUE;
    };
    Fake<&Process32FirstW> m_first = [this](HANDLE handle, PROCESSENTRY32W* entry) {
        auto* const snapshot = m_handles.Find<Snapshot>(handle);
        if (snapshot != nullptr)
        {
            snapshot->next = 0;
        }
        return Read(snapshot, *entry, m_journal.Add("Process32FirstW", m_handles.NameOf(handle)));
    };
    Fake<&Process32NextW> m_next = [this](HANDLE handle, PROCESSENTRY32W* entry) {
        return Read(m_handles.Find<Snapshot>(handle), *entry,
                    m_journal.Add("Process32NextW", m_handles.NameOf(handle)));
    };
    Fake<&OpenProcess> m_open = [this](DWORD access, BOOL inherits, DWORD id) -> HANDLE {
        EXPECT_FALSE(inherits);
        DWORD error = m_journal.Add("OpenProcess", Mask(access), id);
        const auto process = Find(id);
        if (!process || id == 0)
        {
            error = ERROR_INVALID_PARAMETER;
        }
        else if (process->isForDebuggers && !isDebugging())
        {
            error = ERROR_ACCESS_DENIED;
        }
        return Succeeds(error) ? m_handles.Make(std::to_string(id), Opened{id, access}) : nullptr;
    };
    Fake<&QueryFullProcessImageNameW> m_image = [this](HANDLE handle, DWORD flags, wchar_t* name, DWORD* size) -> BOOL {
        const auto id = Begin("QueryFullProcessImageNameW", PROCESS_QUERY_LIMITED_INFORMATION, handle, flags);
        const auto process = id ? Find(*id) : std::nullopt;
        if (!id || !process || process->image.size() >= *size)
        {
            return id && Succeeds(process ? ERROR_INSUFFICIENT_BUFFER : ERROR_GEN_FAILURE);
        }
        *size = static_cast<DWORD>(process->image.size());
        std::wmemcpy(name, process->image.c_str(), process->image.size() + 1);
        return TRUE;
    };
    Fake<&GetProcessTimes> m_times = [this](HANDLE handle, FILETIME* created, FILETIME*, FILETIME*, FILETIME*) -> BOOL {
        const auto id = Begin("GetProcessTimes", PROCESS_QUERY_LIMITED_INFORMATION, handle);
        const auto process = id ? Find(*id) : std::nullopt;
        if (!process)
        {
            return FALSE;
        }
        *created = {static_cast<DWORD>(process->created), static_cast<DWORD>(process->created >> 32)};
        return TRUE;
    };
    Fake<&WaitForSingleObject> m_wait = [this](HANDLE handle, DWORD milliseconds) -> DWORD {
        if (m_handles.Find<Opened>(handle) == nullptr)
        {
            return m_wait.Hidden(handle, milliseconds);
        }
        const auto id = Begin("WaitForSingleObject", SYNCHRONIZE, handle, milliseconds);
        const auto process = id ? Find(*id) : std::nullopt;
        if (process && process->endsWhenWaitedFor)
        {
            Remove(*id);
        }
        return !id ? WAIT_FAILED : Find(*id) ? DWORD{WAIT_TIMEOUT} : WAIT_OBJECT_0;
    };
    Fake<&TerminateProcess> m_terminate = [this](HANDLE handle, UINT exitCode) -> BOOL {
        const auto id = Begin("TerminateProcess", PROCESS_TERMINATE, handle, exitCode);
        const auto process = id ? Find(*id) : std::nullopt;
        if (!process)
        {
            return id && Succeeds(ERROR_ACCESS_DENIED); // it has ended
        }
        if (!process->survives)
        {
            Remove(*id);
        }
        onTerminate(*id);
        return TRUE;
    };
    Fake<&OpenProcessToken> m_openToken = [this](HANDLE handle, DWORD access, HANDLE* token) -> BOOL {
        const std::string name =
            "token of " + (handle == GetCurrentProcess() ? "this process" : m_handles.NameOf(handle));
        const auto id = Begin("OpenProcessToken", PROCESS_QUERY_LIMITED_INFORMATION, handle, Mask(access));
        *token = id ? m_handles.Make(name, FakeToken{*id, access}) : nullptr;
        return id.has_value();
    };
    Fake<&WTSGetActiveConsoleSessionId> m_console = [this] {
        m_journal.Add("WTSGetActiveConsoleSessionId");
        return consoleSession;
    };
    Fake<&ProcessIdToSessionId> m_session = [this](DWORD id, DWORD* session) -> BOOL {
        DWORD error = m_journal.Add("ProcessIdToSessionId", id);
        const auto process = Find(id);
        if (!Succeeds(process ? error : ERROR_INVALID_PARAMETER))
        {
            return FALSE;
        }
        *session = process->session;
        return TRUE;
    };
};

} // namespace Testing
