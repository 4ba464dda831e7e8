// Processes, threads and waiting.
#include "support/common/contract/Contract.h"
#include "support/common/contract/OpenObjects.h"

#include <tlhelp32.h>

#include <cwchar>
#include <string_view>

namespace Testing
{

namespace
{

constexpr DWORD c_furtherAccess = c_genericRights | MAXIMUM_ALLOWED | ACCESS_SYSTEM_SECURITY;

// Process Security and Access Rights: the right to query everything includes the right to query a part.
DWORD CompleteRights(DWORD access)
{
    return HasAll(access, PROCESS_QUERY_INFORMATION) ? access | PROCESS_QUERY_LIMITED_INFORMATION : access;
}

// GetCurrentProcess gives a pseudo handle that grants everything.
bool IsProcess(HANDLE process, DWORD rights = 0)
{
    return process == GetCurrentProcess() || (process != nullptr && Grants(process, Kind::Process, rights));
}

bool IsThread(HANDLE thread, DWORD rights = 0)
{
    return thread == GetCurrentThread() || (IsHandle(thread) && Grants(thread, Kind::Thread, rights));
}

template <class Structure>
bool HasSize(const Structure* attributes)
{
    return attributes == nullptr || attributes->nLength == sizeof(*attributes);
}
constexpr char c_securitySize[] = "SECURITY_ATTRIBUTES: its size";

const Contract<&OpenProcess> s_openProcess{
    [](DWORD access, BOOL, DWORD) {
        return Verdict{
            {HasOnly(access, PROCESS_ALL_ACCESS | c_furtherAccess), "Process Security and Access Rights: known rights"},
            {access != 0, "Process Security and Access Rights: a right"},
        };
    },
    [](HANDLE process, DWORD access, BOOL, DWORD) { NoteOpened(process, Kind::Process, CompleteRights(access)); }};

const Contract<&TerminateProcess> s_terminateProcess = [](HANDLE process, UINT) {
    return Verdict{
        {IsProcess(process), "an open process"},
        {IsProcess(process, PROCESS_TERMINATE), "the process was opened with PROCESS_TERMINATE"},
    };
};

const Contract<&GetProcessTimes> s_getProcessTimes = [](HANDLE process, LPFILETIME creation, LPFILETIME exit,
                                                        LPFILETIME kernel, LPFILETIME user) {
    return Verdict{
        {IsProcess(process), "an open process"},
        {IsProcess(process, PROCESS_QUERY_LIMITED_INFORMATION),
         "the process was opened with PROCESS_QUERY_INFORMATION or PROCESS_QUERY_LIMITED_INFORMATION"},
        {creation != nullptr && exit != nullptr && kernel != nullptr && user != nullptr, "places for the four times"},
    };
};

const Contract<&QueryFullProcessImageNameW> s_queryImageName = [](HANDLE process, DWORD flags, LPWSTR name,
                                                                  PDWORD size) {
    return Verdict{
        {IsProcess(process), "an open process"},
        {IsProcess(process, PROCESS_QUERY_LIMITED_INFORMATION),
         "the process was opened with PROCESS_QUERY_INFORMATION or PROCESS_QUERY_LIMITED_INFORMATION"},
        {IsOneOf(flags, 0U, PROCESS_NAME_NATIVE), "0 or PROCESS_NAME_NATIVE"},
        {size != nullptr, "the size of the buffer"},
        {name != nullptr, "a buffer"},
    };
};

const Contract<&GetProcessAffinityMask> s_getAffinity = [](HANDLE process, PDWORD_PTR mask, PDWORD_PTR systemMask) {
    return Verdict{
        {IsProcess(process, PROCESS_QUERY_LIMITED_INFORMATION),
         "the process was opened with PROCESS_QUERY_INFORMATION or PROCESS_QUERY_LIMITED_INFORMATION"},
        {mask != nullptr && systemMask != nullptr, "places for the two masks"},
    };
};

const Contract<&SetProcessAffinityMask> s_setAffinity = [](HANDLE process, DWORD_PTR mask) {
    return Verdict{
        {IsProcess(process, PROCESS_SET_INFORMATION), "the process was opened with PROCESS_SET_INFORMATION"},
        {mask != 0, "a processor"},
    };
};

const Contract<&ProcessIdToSessionId> s_processIdToSessionId = [](DWORD, DWORD* session) {
    return Verdict{{session != nullptr, "a place for the session"}};
};

const Contract<&CreateToolhelp32Snapshot> s_createSnapshot{
    [](DWORD flags, DWORD) {
        constexpr DWORD c_contents = TH32CS_SNAPALL | TH32CS_SNAPMODULE32;
        return Verdict{
            {HasOnly(flags, c_contents | TH32CS_INHERIT), "known flags"},
            {(flags & c_contents) != 0, "something to take a snapshot of"},
        };
    },
    [](HANDLE snapshot, DWORD, DWORD) {
        if (snapshot != INVALID_HANDLE_VALUE)
        {
            NoteOpened(snapshot, Kind::Snapshot);
        }
    }};

Verdict JudgeEntry(HANDLE snapshot, LPPROCESSENTRY32W entry)
{
    return {
        {IsHandle(snapshot) && MayBe(snapshot, Kind::Snapshot), "a snapshot of CreateToolhelp32Snapshot"},
        {entry != nullptr, "a place for the entry"},
        {entry == nullptr || entry->dwSize == sizeof(*entry), "PROCESSENTRY32: its size"},
    };
}
const Contract<&Process32FirstW> s_firstProcess = JudgeEntry;
const Contract<&Process32NextW> s_nextProcess = JudgeEntry;

// What else the page asks for, and is left out here: CREATE_UNICODE_ENVIRONMENT for the parent's own environment, which
// Windows copies as it is.
const Contract<&CreateProcessW> s_createProcess{
    [](LPCWSTR program, LPWSTR commandLine, LPSECURITY_ATTRIBUTES process, LPSECURITY_ATTRIBUTES thread, BOOL,
       DWORD flags, LPVOID environment, LPCWSTR, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION started) {
        constexpr DWORD c_priorities = IDLE_PRIORITY_CLASS | BELOW_NORMAL_PRIORITY_CLASS | NORMAL_PRIORITY_CLASS |
                                       ABOVE_NORMAL_PRIORITY_CLASS | HIGH_PRIORITY_CLASS | REALTIME_PRIORITY_CLASS;
        constexpr DWORD c_flags =
            CREATE_BREAKAWAY_FROM_JOB | CREATE_DEFAULT_ERROR_MODE | CREATE_NEW_CONSOLE | CREATE_NEW_PROCESS_GROUP |
            CREATE_NO_WINDOW | CREATE_PROTECTED_PROCESS | CREATE_PRESERVE_CODE_AUTHZ_LEVEL | CREATE_SEPARATE_WOW_VDM |
            CREATE_SHARED_WOW_VDM | CREATE_SUSPENDED | CREATE_UNICODE_ENVIRONMENT | DEBUG_ONLY_THIS_PROCESS |
            DEBUG_PROCESS | DETACHED_PROCESS | EXTENDED_STARTUPINFO_PRESENT | INHERIT_PARENT_AFFINITY;
        constexpr std::size_t c_longestCommandLine = 32767;
        const std::size_t size =
            HasAll(flags, EXTENDED_STARTUPINFO_PRESENT) ? sizeof(STARTUPINFOEXW) : sizeof(STARTUPINFOW);
        return Verdict{
            {program != nullptr || commandLine != nullptr, "a program or a command line"},
            {commandLine == nullptr || std::wcslen(commandLine) <= c_longestCommandLine,
             "a command line of up to 32,767 characters"},
            {HasSize(process) && HasSize(thread), c_securitySize},
            {HasOnly(flags, c_flags | c_priorities), "Process Creation Flags: known flags"},
            {HasAtMostOneOf(flags, CREATE_NEW_CONSOLE | DETACHED_PROCESS),
             "Process Creation Flags: CREATE_NEW_CONSOLE or DETACHED_PROCESS, not both"},
            {HasAtMostOneOf(flags, c_priorities), "Scheduling Priorities: one priority class"},
            {environment == nullptr || HasAll(flags, CREATE_UNICODE_ENVIRONMENT) ||
                 *static_cast<const char*>(environment) != '\0',
             "an ANSI environment begins with a name"},
            {startup != nullptr, "STARTUPINFO is required"},
            {startup == nullptr || startup->cb == size, "STARTUPINFO: its size"},
            {startup == nullptr || (startup->lpReserved == nullptr && startup->cbReserved2 == 0),
             "STARTUPINFO: the reserved members are zero"},
            {started != nullptr, "a place for the handles"},
        };
    },
    [](BOOL done, LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID, LPCWSTR,
       LPSTARTUPINFOW, LPPROCESS_INFORMATION started) {
        if (done)
        {
            NoteOpened(started->hProcess, Kind::Process, PROCESS_ALL_ACCESS);
            NoteOpened(started->hThread, Kind::Thread, THREAD_ALL_ACCESS);
        }
    }};

const Contract<&CreateThread> s_createThread{
    [](LPSECURITY_ATTRIBUTES security, SIZE_T, LPTHREAD_START_ROUTINE start, LPVOID, DWORD flags, LPDWORD) {
        return Verdict{
            {HasSize(security), c_securitySize},
            {start != nullptr, "a function"},
            {HasOnly(flags, CREATE_SUSPENDED | STACK_SIZE_PARAM_IS_A_RESERVATION), "known flags"},
        };
    },
    [](HANDLE thread, LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE, LPVOID, DWORD, LPDWORD) {
        NoteOpened(thread, Kind::Thread, THREAD_ALL_ACCESS);
    }};

const Contract<&ResumeThread> s_resumeThread = [](HANDLE thread) {
    return Verdict{{IsThread(thread, THREAD_SUSPEND_RESUME), "the thread was opened with THREAD_SUSPEND_RESUME"}};
};

const Contract<&SuspendThread> s_suspendThread = [](HANDLE thread) {
    return Verdict{{IsThread(thread, THREAD_SUSPEND_RESUME), "the thread was opened with THREAD_SUSPEND_RESUME"}};
};

const Contract<&GetThreadContext> s_getThreadContext = [](HANDLE thread, LPCONTEXT context) {
    return Verdict{
        {IsThread(thread, THREAD_GET_CONTEXT), "the thread was opened with THREAD_GET_CONTEXT"},
        {context != nullptr && IsAligned(context, alignof(CONTEXT)), "CONTEXT: aligned on 16 bytes"},
    };
};

const Contract<&SetThreadContext> s_setThreadContext = [](HANDLE thread, const CONTEXT* context) {
    return Verdict{
        {IsThread(thread, THREAD_SET_CONTEXT), "the thread was opened with THREAD_SET_CONTEXT"},
        {context != nullptr && IsAligned(context, alignof(CONTEXT)), "CONTEXT: aligned on 16 bytes"},
    };
};

const Contract<&GetThreadPriority> s_getThreadPriority = [](HANDLE thread) {
    return Verdict{{IsThread(thread, THREAD_QUERY_INFORMATION), "the thread was opened with THREAD_QUERY_INFORMATION"}};
};

const Contract<&SetThreadPriority> s_setThreadPriority = [](HANDLE thread, int priority) {
    constexpr int c_beginBackground = 0x00010000; // THREAD_MODE_BACKGROUND_BEGIN
    constexpr int c_endBackground = 0x00020000;   // THREAD_MODE_BACKGROUND_END
    return Verdict{
        {IsThread(thread, THREAD_SET_INFORMATION), "the thread was opened with THREAD_SET_INFORMATION"},
        {(priority >= -7 && priority <= 6) ||
             IsOneOf(priority, THREAD_PRIORITY_IDLE, THREAD_PRIORITY_TIME_CRITICAL, c_beginBackground, c_endBackground),
         "a thread's priority"},
    };
};

const Contract<&SetThreadStackGuarantee> s_setStackGuarantee = [](PULONG size) {
    return Verdict{{size != nullptr, "a size"}};
};

// Everything that CloseHandle closes.
bool IsClosable(HANDLE handle)
{
    return MayBe(handle, Kind::File, Kind::Process, Kind::Thread, Kind::Token, Kind::Mutex, Kind::Event,
                 Kind::Semaphore, Kind::Snapshot);
}

const Contract<&CloseHandle> s_closeHandle{
    [](HANDLE handle) {
        return Verdict{
            {handle != nullptr && !IsClosed(handle), "an open handle"},
            {IsClosable(handle), "other objects have other functions that close them"},
        };
    },
    [](BOOL done, HANDLE handle) {
        if (done)
        {
            NoteClosed(handle);
        }
    }};

const Contract<&DuplicateHandle> s_duplicateHandle{
    [](HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, LPHANDLE target, DWORD, BOOL, DWORD options) {
        return Verdict{
            {IsProcess(sourceProcess, PROCESS_DUP_HANDLE) && IsProcess(targetProcess, PROCESS_DUP_HANDLE),
             "the processes were opened with PROCESS_DUP_HANDLE"},
            {source != nullptr, "an open handle"},
            {target != nullptr || HasAll(options, DUPLICATE_CLOSE_SOURCE), "a place for the handle"},
            {HasOnly(options, DUPLICATE_CLOSE_SOURCE | DUPLICATE_SAME_ACCESS), "known options"},
        };
    },
    [](BOOL done, HANDLE, HANDLE source, HANDLE, LPHANDLE target, DWORD, BOOL, DWORD options) {
        if (HasAll(options, DUPLICATE_CLOSE_SOURCE))
        {
            NoteClosed(source);
        }
        if (done && target != nullptr)
        {
            Forget(*target); // its rights may be others
        }
    }};

const Contract<&GetHandleInformation> s_getHandleInformation = [](HANDLE handle, LPDWORD flags) {
    return Verdict{
        {handle != nullptr, "an open handle"},
        {flags != nullptr, "a place for the flags"},
    };
};

// What can be waited for, and was opened for it.
bool IsWaitable(HANDLE handle)
{
    return handle == GetCurrentProcess() || handle == GetCurrentThread() ||
           (IsHandle(handle) &&
            MayBe(handle, Kind::File, Kind::Process, Kind::Thread, Kind::Mutex, Kind::Event, Kind::Semaphore));
}

bool GrantsWaiting(HANDLE handle)
{
    return Grants(handle, Kind::Process, SYNCHRONIZE) || Grants(handle, Kind::Thread, SYNCHRONIZE) ||
           Grants(handle, Kind::Mutex, SYNCHRONIZE) || Grants(handle, Kind::Event, SYNCHRONIZE) ||
           Grants(handle, Kind::Semaphore, SYNCHRONIZE) || Grants(handle, Kind::File, SYNCHRONIZE);
}

constexpr char c_waitable[] = "an open object that can be waited for";
constexpr char c_synchronize[] = "the handle was opened with SYNCHRONIZE";

const Contract<&WaitForSingleObject> s_wait = [](HANDLE handle, DWORD) {
    return Verdict{
        {IsWaitable(handle), c_waitable},
        {GrantsWaiting(handle), c_synchronize},
    };
};

const Contract<&WaitForSingleObjectEx> s_waitEx = [](HANDLE handle, DWORD, BOOL) {
    return Verdict{
        {IsWaitable(handle), c_waitable},
        {GrantsWaiting(handle), c_synchronize},
    };
};

const Contract<&WaitForMultipleObjects> s_waitForMany = [](DWORD count, const HANDLE* handles, BOOL, DWORD) {
    bool areWaitable = handles != nullptr;
    bool areGranted = true;
    for (DWORD i = 0; areWaitable && i < count && i < MAXIMUM_WAIT_OBJECTS; ++i)
    {
        areWaitable = IsWaitable(handles[i]);
        areGranted = areGranted && GrantsWaiting(handles[i]);
    }
    return Verdict{
        {count != 0 && count <= MAXIMUM_WAIT_OBJECTS, "1 to 64 objects"},
        {areWaitable, c_waitable},
        {areGranted, c_synchronize},
    };
};

const Contract<&CreateEventA> s_createEventA{
    [](LPSECURITY_ATTRIBUTES security, BOOL, BOOL, LPCSTR) { return Verdict{{HasSize(security), c_securitySize}}; },
    [](HANDLE event, LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCSTR) { NoteOpened(event, Kind::Event, EVENT_ALL_ACCESS); }};

const Contract<&CreateEventW> s_createEventW{
    [](LPSECURITY_ATTRIBUTES security, BOOL, BOOL, LPCWSTR name) {
        return Verdict{
            {HasSize(security), c_securitySize},
            {name == nullptr || std::wcslen(name) <= MAX_PATH, "a name of up to MAX_PATH characters"},
        };
    },
    [](HANDLE event, LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) { NoteOpened(event, Kind::Event, EVENT_ALL_ACCESS); }};

const Contract<&CreateEventExW> s_createEventEx{
    [](LPSECURITY_ATTRIBUTES security, LPCWSTR, DWORD flags, DWORD access) {
        return Verdict{
            {HasSize(security), c_securitySize},
            {HasOnly(flags, CREATE_EVENT_INITIAL_SET | CREATE_EVENT_MANUAL_RESET), "known flags"},
            {HasOnly(access, EVENT_ALL_ACCESS | c_furtherAccess),
             "Synchronization Object Security and Access Rights: known rights"},
        };
    },
    [](HANDLE event, LPSECURITY_ATTRIBUTES, LPCWSTR, DWORD, DWORD access) { NoteOpened(event, Kind::Event, access); }};

const Contract<&CreateMutexExW> s_createMutexEx{
    [](LPSECURITY_ATTRIBUTES security, LPCWSTR name, DWORD flags, DWORD access) {
        const std::wstring_view text = name == nullptr ? L"" : name;
        const std::size_t prefix =
            text.starts_with(L"Global\\") || text.starts_with(L"Local\\") ? text.find(L'\\') + 1 : 0;
        return Verdict{
            {HasSize(security), c_securitySize},
            {text.size() <= MAX_PATH, "a name of up to MAX_PATH characters"},
            {text.find(L'\\', prefix) == std::wstring_view::npos,
             "Kernel object namespaces: no backslash but that of the prefix Global or Local"},
            {HasOnly(flags, CREATE_MUTEX_INITIAL_OWNER), "no flag but CREATE_MUTEX_INITIAL_OWNER"},
            {HasOnly(access, MUTEX_ALL_ACCESS | c_furtherAccess),
             "Synchronization Object Security and Access Rights: known rights"},
        };
    },
    [](HANDLE mutex, LPSECURITY_ATTRIBUTES, LPCWSTR, DWORD, DWORD access) { NoteOpened(mutex, Kind::Mutex, access); }};

const Contract<&CreateSemaphoreA> s_createSemaphore{
    [](LPSECURITY_ATTRIBUTES security, LONG initial, LONG maximum, LPCSTR) {
        return Verdict{
            {HasSize(security), c_securitySize},
            {maximum > 0, "a maximum greater than 0"},
            {initial >= 0 && initial <= maximum, "an initial count from 0 to the maximum"},
        };
    },
    [](HANDLE semaphore, LPSECURITY_ATTRIBUTES, LONG, LONG, LPCSTR) {
        NoteOpened(semaphore, Kind::Semaphore, SEMAPHORE_ALL_ACCESS);
    }};

Verdict JudgeEvent(HANDLE event)
{
    return {
        {IsHandle(event) && MayBe(event, Kind::Event), "an open event"},
        {Grants(event, Kind::Event, EVENT_MODIFY_STATE), "the event was opened with EVENT_MODIFY_STATE"},
    };
}
const Contract<&SetEvent> s_setEvent = JudgeEvent;
const Contract<&ResetEvent> s_resetEvent = JudgeEvent;

const Contract<&ReleaseSemaphore> s_releaseSemaphore = [](HANDLE semaphore, LONG count, LPLONG) {
    return Verdict{
        {IsHandle(semaphore) && Grants(semaphore, Kind::Semaphore, SEMAPHORE_MODIFY_STATE),
         "the semaphore was opened with SEMAPHORE_MODIFY_STATE"},
        {count > 0, "a count greater than 0"},
    };
};

} // namespace

} // namespace Testing
