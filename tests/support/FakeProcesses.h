#pragma once

#include "support/ImportTableFake.h"
#include "support/Text.h"

#include <windows.h>

#include <tlhelp32.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Testing
{

struct FakeProcess
{
    DWORD id = 0;
    std::wstring name{};
    DWORD session = 1;
    DWORD openError = ERROR_SUCCESS;            // why it cannot be opened, if so
    std::wstring image{};                       // the full path of its file
    DWORD imageError = ERROR_SUCCESS;           // why that is not told, if so
    DWORD openToTerminateError = ERROR_SUCCESS; // why it cannot be opened for that, if so
    DWORD terminateError = ERROR_SUCCESS;       // why it cannot be terminated, if so
    bool survives = false;                      // does not end although it is terminated
    DWORD parent = 0;                           // the process that started it
    ULONGLONG created = 0;                      // when that was
    DWORD timesError = ERROR_SUCCESS;           // why that is not told, if so
    bool endsWhenWaitedFor = false;             // within the time that somebody waits for its end
    bool isForDebuggers = false;                // denies access to all others
};

// The processes of the machine, as snapshots show them and as they are opened, with a list of all calls:
//     processes.Add({.id = 40, .name = L"explorer.exe", .session = 2});
// The idle process comes first; the others follow in the order in which they were added.
class FakeProcesses
{
public:
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

    // The id of an opened process; nothing for a handle that is not one (any more).
    std::optional<DWORD> IdOf(HANDLE process) const
    {
        const auto found = m_opened.find(process);
        return found == m_opened.end() ? std::nullopt : std::optional(found->second.id);
    }

    // What CreateToolhelp32Snapshot returns when it shall fail, and its last error.
    void FailSnapshots(HANDLE result, DWORD error)
    {
        m_failedSnapshot = result;
        m_snapshotError = error;
    }

    // Lets Process32FirstW fail.
    void FailFirst() { m_firstFails = true; }

    // A handle to something else, of that name: it is noted when it is closed, too.
    HANDLE MakeHandle(const std::string& name)
    {
        // No real handle is as large.
        const auto handle = reinterpret_cast<HANDLE>(m_nextHandle += 4);
        m_names[handle] = name;
        return handle;
    }

    // Whether the program is one that may debug others.
    std::function<bool()> isDebugging = [] { return false; };

    bool IsOpen(HANDLE handle) const { return m_names.contains(handle); }

    // How many handles of all kinds are open now, and how many of them are snapshots.
    std::size_t OpenHandles() const { return m_names.size(); }
    std::size_t OpenSnapshots() const { return m_snapshots.size(); }

    // Every call so far: "snapshot <flags> <id>", "first <size>", "next", "open <access> <id>" (with " inherited" for
    // such a handle), "image <flags> <id>", "times <id>", "wait <id> <milliseconds>", "terminate <id> <exit code>",
    // "close snapshot", "close <id>", "close <name>". The access mask is hexadecimal.
    const std::vector<std::string>& Calls() const { return m_calls; }

    // The calls since the last time.
    std::vector<std::string> NewCalls() { return std::exchange(m_calls, {}); }

    // Puts the call of another function into the list.
    void Note(const std::string& call) { m_calls.push_back(call); }

private:
    struct Opened
    {
        DWORD id = 0;
        DWORD access = 0;
    };

    struct Snapshot
    {
        std::vector<FakeProcess> processes;
        std::size_t next = 0;
    };

    HANDLE TakeSnapshot()
    {
        if (m_snapshotError != ERROR_SUCCESS)
        {
            SetLastError(m_snapshotError);
            return m_failedSnapshot;
        }
        const HANDLE handle = MakeHandle("snapshot");
        m_snapshots[handle] = {.processes = m_processes};
        return handle;
    }

    BOOL Read(HANDLE handle, PROCESSENTRY32W& entry)
    {
        const auto snapshot = m_snapshots.find(handle);
        if (snapshot == m_snapshots.end() || entry.dwSize != sizeof(entry))
        {
            SetLastError(snapshot == m_snapshots.end() ? ERROR_INVALID_HANDLE : ERROR_BAD_LENGTH);
            return FALSE;
        }
        auto& [processes, next] = snapshot->second;
        if (next == processes.size())
        {
            SetLastError(ERROR_NO_MORE_FILES);
            return FALSE;
        }
        const FakeProcess& process = processes[next++];
        entry.th32ProcessID = process.id;
        entry.th32ParentProcessID = process.parent;
        std::wmemcpy(entry.szExeFile, process.name.c_str(), process.name.size() + 1);
        return TRUE;
    }

    BOOL ReadFirst(HANDLE handle, PROCESSENTRY32W& entry)
    {
        if (m_firstFails)
        {
            SetLastError(ERROR_NO_MORE_FILES);
            return FALSE;
        }
        if (const auto snapshot = m_snapshots.find(handle); snapshot != m_snapshots.end())
        {
            snapshot->second.next = 0;
        }
        return Read(handle, entry);
    }

    HANDLE Open(DWORD access, DWORD id)
    {
        const auto process = Find(id);
        DWORD error = !process || id == 0 ? ERROR_INVALID_PARAMETER : process->openError;
        if (error == ERROR_SUCCESS && process->isForDebuggers && !isDebugging())
        {
            error = ERROR_ACCESS_DENIED;
        }
        if (error == ERROR_SUCCESS && (access & PROCESS_TERMINATE) != 0)
        {
            error = process->openToTerminateError;
        }
        if (error != ERROR_SUCCESS)
        {
            SetLastError(error);
            return nullptr;
        }
        const HANDLE handle = MakeHandle(std::to_string(id));
        m_opened[handle] = {.id = id, .access = access};
        return handle;
    }

    // The process behind an open handle, or nothing and the last error: that one of its own, when there is such an
    // error.
    std::optional<FakeProcess> FindOpened(HANDLE handle, DWORD FakeProcess::* error) const
    {
        const auto id = IdOf(handle);
        const auto process = id ? Find(*id) : std::nullopt;
        if (!process || (*process).*error != ERROR_SUCCESS)
        {
            SetLastError(!id ? ERROR_INVALID_HANDLE : !process ? ERROR_GEN_FAILURE : (*process).*error);
            return std::nullopt;
        }
        return process;
    }

    BOOL ReadImage(HANDLE handle, wchar_t* name, DWORD& size) const
    {
        const auto process = FindOpened(handle, &FakeProcess::imageError);
        if (!process)
        {
            return FALSE;
        }
        if (process->image.size() >= size)
        {
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
        std::wmemcpy(name, process->image.c_str(), process->image.size() + 1);
        size = static_cast<DWORD>(process->image.size());
        return TRUE;
    }

    BOOL Terminate(HANDLE handle)
    {
        const auto process = FindOpened(handle, &FakeProcess::terminateError);
        if (process && !process->survives)
        {
            Remove(process->id);
        }
        return process.has_value();
    }

    bool Allows(HANDLE handle, DWORD access) const { return (m_opened.at(handle).access & access) == access; }

    // Of this process, as of an opened one.
    BOOL ReadTimes(HANDLE handle, FILETIME& created) const
    {
        const auto process =
            handle == GetCurrentProcess() ? Find(GetCurrentProcessId()) : FindOpened(handle, &FakeProcess::timesError);
        if (!process || process->timesError != ERROR_SUCCESS)
        {
            SetLastError(process ? process->timesError : GetLastError());
            return FALSE;
        }
        if (handle != GetCurrentProcess() && !Allows(handle, PROCESS_QUERY_LIMITED_INFORMATION))
        {
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        }
        created = {static_cast<DWORD>(process->created), static_cast<DWORD>(process->created >> 32)};
        return TRUE;
    }

    DWORD Wait(HANDLE handle)
    {
        const auto process = Find(*IdOf(handle));
        if (!Allows(handle, SYNCHRONIZE))
        {
            SetLastError(ERROR_ACCESS_DENIED);
            return WAIT_FAILED;
        }
        if (process && process->endsWhenWaitedFor)
        {
            Remove(process->id);
        }
        return process && !process->endsWhenWaitedFor ? WAIT_TIMEOUT : WAIT_OBJECT_0;
    }

    // The id of an opened process as the list of calls names it.
    std::string NameOf(HANDLE process) const
    {
        const auto id = IdOf(process);
        return id ? std::to_string(*id) : "nothing";
    }

    BOOL Close(HANDLE handle)
    {
        const auto name = m_names.extract(handle);
        if (name.empty())
        {
            const auto value = reinterpret_cast<ULONG_PTR>(handle);
            EXPECT_FALSE(value > c_firstHandle && value <= m_nextHandle) << "a handle is closed twice";
            return Fake<&CloseHandle>::Real(handle);
        }
        Note("close " + name.mapped());
        m_snapshots.erase(handle);
        m_opened.erase(handle);
        return TRUE;
    }

    static constexpr ULONG_PTR c_firstHandle = 0x5A000000;

    std::vector<FakeProcess> m_processes{{.id = 0, .name = L"[System Process]", .session = 0}};
    std::map<HANDLE, std::string> m_names; // of everything that is open
    std::map<HANDLE, Snapshot> m_snapshots;
    std::map<HANDLE, Opened> m_opened;
    std::vector<std::string> m_calls;
    HANDLE m_failedSnapshot = nullptr;
    DWORD m_snapshotError = ERROR_SUCCESS;
    bool m_firstFails = false;
    ULONG_PTR m_nextHandle = c_firstHandle;

    // The test program's own number could be that of one of the processes.
    Fake<&GetCurrentProcessId> m_self = []() -> DWORD { return 4711; };
    Fake<&CreateToolhelp32Snapshot> m_snapshot = [this](DWORD flags, DWORD id) {
        Note("snapshot " + std::to_string(flags) + " " + std::to_string(id));
        return TakeSnapshot();
    };
    Fake<&Process32FirstW> m_first = [this](HANDLE snapshot, PROCESSENTRY32W* entry) {
        Note("first " + std::to_string(entry->dwSize));
        return ReadFirst(snapshot, *entry);
    };
    Fake<&Process32NextW> m_next = [this](HANDLE snapshot, PROCESSENTRY32W* entry) {
        Note("next");
        return Read(snapshot, *entry);
    };
    Fake<&OpenProcess> m_open = [this](DWORD access, BOOL inherit, DWORD id) {
        Note("open " + Hex(access) + " " + std::to_string(id) + (inherit ? " inherited" : ""));
        return Open(access, id);
    };
    Fake<&QueryFullProcessImageNameW> m_queryImage = [this](HANDLE process, DWORD flags, wchar_t* name, DWORD* size) {
        Note("image " + std::to_string(flags) + " " + NameOf(process));
        return ReadImage(process, name, *size);
    };
    Fake<&GetProcessTimes> m_times = [this](HANDLE process, FILETIME* created, FILETIME*, FILETIME*, FILETIME*) {
        Note("times " + (process == GetCurrentProcess() ? "self" : NameOf(process)));
        return ReadTimes(process, *created);
    };
    Fake<&WaitForSingleObject> m_wait = [this](HANDLE handle, DWORD milliseconds) {
        if (!IdOf(handle))
        {
            return m_wait.Hidden(handle, milliseconds);
        }
        Note("wait " + NameOf(handle) + " " + std::to_string(milliseconds));
        return Wait(handle);
    };
    Fake<&TerminateProcess> m_terminate = [this](HANDLE process, UINT exitCode) {
        Note("terminate " + NameOf(process) + " " + std::to_string(exitCode));
        return Terminate(process);
    };
    Fake<&CloseHandle> m_close = [this](HANDLE handle) { return Close(handle); };
};

} // namespace Testing
