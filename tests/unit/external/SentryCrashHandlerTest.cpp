#include "Crash.h"
#include "support/common/EnvelopeParser.h"
#include "support/common/ImportTableFake.h"
#include "support/unit/OutOfMemory.h"
#include "support/unit/TestFolder.h"

#include <windows.h>

#include <dbghelp.h>
#include <winternl.h>

#include <gmock/gmock.h>
#include <wil/resource.h>

#include <atomic>
#include <bit>
#include <csignal>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{

using namespace Reporter;
using namespace Testing;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string c_id = "0123456789abcdef0123456789abcdef";
constexpr DWORD c_long = 20'000; // milliseconds: more than anything here takes

// A call of MiniDumpWriteDump.
struct Dump
{
    DWORD process = 0;
    MINIDUMP_TYPE type = MiniDumpWithFullMemory;
    DWORD crashedThread = 0;
    EXCEPTION_POINTERS* pointers = nullptr;
    DWORD thread = 0; // the caller
};

using IncludesThread = std::function<bool(DWORD)>;

std::vector<Dump> g_dumps;
std::function<void(const IncludesThread&)> g_onDump;
int g_previous = 0; // calls of the handlers before

BOOL WINAPI WriteDump(HANDLE, DWORD process, HANDLE file, MINIDUMP_TYPE type, PMINIDUMP_EXCEPTION_INFORMATION exception,
                      PMINIDUMP_USER_STREAM_INFORMATION, PMINIDUMP_CALLBACK_INFORMATION callback)
{
    g_dumps.push_back(
        {process, type, exception->ThreadId, exception->ExceptionPointers, GetCurrentThreadId()}); // room is reserved
    DWORD written = 0;
    WriteFile(file, "MDMP", 4, &written, nullptr);
    const auto asks = [&](MINIDUMP_CALLBACK_TYPE kind, DWORD thread) {
        MINIDUMP_CALLBACK_INPUT input{};
        input.ProcessId = process;
        input.CallbackType = kind;
        input.IncludeThread.ThreadId = thread;
        MINIDUMP_CALLBACK_OUTPUT output{};
        return callback->CallbackRoutine(callback->CallbackParam, &input, &output) != FALSE;
    };
    EXPECT_TRUE(asks(IncludeModuleCallback, 0));
    EXPECT_TRUE(asks(ModuleCallback, 0));
    EXPECT_TRUE(asks(ThreadCallback, 0));
    EXPECT_FALSE(asks(MemoryCallback, 0)) << "it is asked for memory until it has no more";
    EXPECT_FALSE(asks(CancelCallback, 0));
    g_onDump([&](DWORD thread) { return asks(IncludeThreadCallback, thread); });
    return TRUE;
}

LONG WINAPI PreviousFilter(EXCEPTION_POINTERS*)
{
    ++g_previous;
    return EXCEPTION_EXECUTE_HANDLER;
}

class SentryCrashHandlerTest : public testing::Test
{
protected:
    SentryCrashHandlerTest()
    {
        g_dumps.clear();
        g_dumps.reserve(10);
        threads.reserve(10);
        limits.reserve(10);
        g_onDump = [](const IncludesThread&) {};
        g_previous = 0;
        record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
        Make();
    }

    void TearDown() override { onWait = nullptr; }

    ~SentryCrashHandlerTest() override
    {
        handler.reset();
        EXPECT_EQ(filter, &PreviousFilter);
        ExpectThreadsToEnd();
    }

    void Make()
    {
        handler.reset();
        handler = std::make_unique<CrashHandler>(
            CrashPlan{.envelope = MakeCrashEnvelope({.release = "r", .environment = "e"}, c_id),
                      .folder = OpenRoot(),
                      .envelopeName = L"1.envelope",
                      .minidumpName = L"1.dmp"});
    }

    wil::unique_hfile OpenRoot() const
    {
        return wil::unique_hfile(CreateFileW(root.Path().c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ, nullptr,
                                             OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    }

    // As Windows does for an unhandled exception.
    LONG RaiseUnhandled() { return filter(&pointers); }

    nlohmann::json Event() const { return EventOf(ParseEnvelope(ReadFileText(envelopePath))); }
    std::string ExceptionType() const { return Event()["exception"]["values"][0]["type"]; }

    static DWORD Wait(const wil::unique_handle& handle)
    {
        return Fake<&WaitForSingleObject>::Real(handle.get(), c_long);
    }
    void ExpectThreadsToEnd() const
    {
        for (const wil::unique_handle& thread : threads)
        {
            EXPECT_EQ(Wait(thread), WAIT_OBJECT_0);
        }
    }

    // Notes the limits of that thread's waits, which end as it is told: with the timeout, unless a test says otherwise.
    void AnswerWaitsOf(
        const std::atomic<DWORD>& thread,
        const std::function<DWORD(HANDLE)>& answer = [](HANDLE) -> DWORD { return WAIT_TIMEOUT; })
    {
        onWait = [&thread, answer, this](HANDLE handle, DWORD limit) -> DWORD {
            if (GetCurrentThreadId() != thread)
            {
                return wait.Hidden(handle, limit);
            }
            limits.push_back(limit);
            return answer(handle);
        };
    }

    TestFolder root;
    std::wstring envelopePath = root / L"1.envelope";
    std::wstring minidumpPath = root / L"1.dmp";
    EXCEPTION_RECORD record{};
    CONTEXT context{};
    EXCEPTION_POINTERS pointers{&record, &context};
    const std::atomic<DWORD> ownThread = GetCurrentThreadId();
    wil::unique_handle isWriting{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    wil::unique_handle goOn{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    bool hasDebugHelp = true;
    DWORD loadFlags = 0;
    Fake<&LoadLibraryExW> load = [this](LPCWSTR name, HANDLE, DWORD flags) -> HMODULE {
        EXPECT_STREQ(name, L"dbghelp.dll");
        loadFlags = flags;
        return hasDebugHelp ? reinterpret_cast<HMODULE>(this) : nullptr;
    };
    Fake<&GetProcAddress> find = [this](HMODULE library, LPCSTR name) -> FARPROC {
        if (library != reinterpret_cast<HMODULE>(this))
        {
            return find.Hidden(library, name); // ntdll's
        }
        EXPECT_STREQ(name, "MiniDumpWriteDump");
        return std::bit_cast<FARPROC>(&WriteDump);
    };
    LPTOP_LEVEL_EXCEPTION_FILTER filter = &PreviousFilter;
    Fake<&SetUnhandledExceptionFilter> setFilter = [this](LPTOP_LEVEL_EXCEPTION_FILTER its) {
        return std::exchange(filter, its);
    };
    std::vector<wil::unique_handle> threads; // that the handler has made
    Fake<&CreateThread> createThread = [this](LPSECURITY_ATTRIBUTES attributes, SIZE_T stack,
                                              LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD flags, LPDWORD id) {
        const HANDLE made = createThread.Hidden(attributes, stack, start, parameter, flags | CREATE_SUSPENDED, id);
        DuplicateHandle(GetCurrentProcess(), made, GetCurrentProcess(), threads.emplace_back().put(), 0, FALSE,
                        DUPLICATE_SAME_ACCESS);
        ResumeThread(made);
        return made;
    };
    std::atomic<int> files = 0;               // that were created
    std::function<void()> onEnvelope = [] {}; // just before it is created
    Fake<&NtCreateFile> create = [this](PHANDLE file, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes,
                                        PIO_STATUS_BLOCK status, PLARGE_INTEGER size, ULONG fileAttributes, ULONG share,
                                        ULONG disposition, ULONG options, auto... others) {
        EXPECT_EQ(disposition, ULONG{FILE_CREATE});
        EXPECT_EQ(share, 0U);
        EXPECT_EQ(attributes->Attributes, 0x1000U) << "OBJ_DONT_REPARSE: no link is followed";
        EXPECT_NE(options & FILE_OPEN_REPARSE_POINT, 0U);
        ++files;
        if (std::wstring_view(attributes->ObjectName->Buffer, attributes->ObjectName->Length / sizeof(wchar_t)) ==
            L"1.envelope")
        {
            onEnvelope();
        }
        return create.Hidden(file, access, attributes, status, size, fileAttributes, share, disposition, options,
                             others...);
    };
    std::vector<DWORD> limits; // of waits
    std::function<DWORD(HANDLE, DWORD)> onWait;
    Fake<&WaitForSingleObject> wait = [this](HANDLE handle, DWORD limit) {
        return onWait ? onWait(handle, limit) : wait.Hidden(handle, limit);
    };
    std::unique_ptr<CrashHandler> handler;
};

TEST_F(SentryCrashHandlerTest, Writes_an_envelope_and_a_minidump_and_calls_the_filter_before)
{
    record.ExceptionCode = 0x1234ABEF;
    handler->AddBreadcrumb(R"({"message":"one"})");
    handler->AddBreadcrumb(R"({"message":"two"})");
    const Timestamp before = TimestampNow();
    EXPECT_EQ(loadFlags, 0U); // until something crashes

    EXPECT_EQ(RaiseUnhandled(), EXCEPTION_EXECUTE_HANDLER);

    EXPECT_EQ(g_previous, 1);
    const auto event = Event();
    EXPECT_EQ(event["event_id"], c_id);
    EXPECT_EQ(event["level"], "fatal");
    EXPECT_EQ(ExceptionType(), "Exception 0x1234abef");
    EXPECT_GE(event["timestamp"].get<std::string>(), ToText(before));
    EXPECT_LE(event["timestamp"].get<std::string>(), ToText(TimestampNow()));
    EXPECT_EQ(event["breadcrumbs"], nlohmann::json::parse(R"([{"message":"one"},{"message":"two"}])"));
    ASSERT_EQ(g_dumps.size(), 1U);
    EXPECT_EQ(g_dumps[0].process, GetCurrentProcessId());
    EXPECT_EQ(g_dumps[0].type, MiniDumpNormal);
    EXPECT_EQ(g_dumps[0].crashedThread, GetCurrentThreadId());
    EXPECT_NE(g_dumps[0].thread, GetCurrentThreadId());
    EXPECT_EQ(g_dumps[0].pointers, &pointers);
    EXPECT_EQ(ReadFileText(minidumpPath), "MDMP");
    EXPECT_EQ(files, 2);
    EXPECT_EQ(loadFlags, DWORD{LOAD_LIBRARY_SEARCH_SYSTEM32});
}

TEST_F(SentryCrashHandlerTest, Needs_no_memory)
{
    {
        const OutOfMemory outOfMemory;
        RaiseUnhandled();
    }
    EXPECT_EQ(Event()["breadcrumbs"], nlohmann::json::array());
    EXPECT_TRUE(Exists(minidumpPath));
}

TEST_F(SentryCrashHandlerTest, Keeps_the_last_hundred_breadcrumbs)
{
    for (int i = 0; i < 102; ++i)
    {
        handler->AddBreadcrumb(std::to_string(i));
    }
    RaiseUnhandled();
    const auto breadcrumbs = Event()["breadcrumbs"];
    ASSERT_EQ(breadcrumbs.size(), 100U);
    EXPECT_EQ(breadcrumbs.front(), 2);
    EXPECT_EQ(breadcrumbs.back(), 101);
}

TEST_F(SentryCrashHandlerTest, Tries_the_lock_of_the_breadcrumbs_a_thousand_times)
{
    for (const int lockedAttempts : {999, 1000})
    {
        DeleteFileW(envelopePath.c_str());
        Make();
        handler->AddBreadcrumb("1");
        int attempts = 0;
        {
            Fake<&TryAcquireSRWLockExclusive> acquire = [&](PSRWLOCK lock) -> BOOLEAN {
                return ++attempts > lockedAttempts && acquire.Hidden(lock) != FALSE;
            };
            RaiseUnhandled();
        }
        EXPECT_EQ(attempts, 1000);
        EXPECT_EQ(Event()["breadcrumbs"].size(), lockedAttempts == 999 ? 1U : 0U);
    }
}

TEST_F(SentryCrashHandlerTest, Does_without_a_minidump_where_the_library_is_not_there)
{
    hasDebugHelp = false;
    RaiseUnhandled();
    EXPECT_TRUE(Exists(envelopePath));
    EXPECT_FALSE(Exists(minidumpPath));
}

TEST_F(SentryCrashHandlerTest, Excludes_the_threads_of_the_minidump)
{
    std::vector<DWORD> excluded;
    g_onDump = [&](const IncludesThread& includes) {
        EXPECT_TRUE(includes(ownThread));
        for (const wil::unique_handle& thread : threads)
        {
            excluded.push_back(GetThreadId(thread.get()));
            EXPECT_FALSE(includes(excluded.back()));
        }
    };
    RaiseUnhandled();
    EXPECT_EQ(excluded.size(), 2U);
    EXPECT_THAT(excluded, testing::Contains(g_dumps.at(0).thread));
}

TEST_F(SentryCrashHandlerTest, Goes_on_when_the_minidump_takes_for_ever)
{
    g_onDump = [&](const IncludesThread&) {
        SetEvent(isWriting.get());
        Wait(goOn);
    };
    AnswerWaitsOf(ownThread, [&](HANDLE) -> DWORD {
        Wait(isWriting);
        return WAIT_TIMEOUT;
    });
    EXPECT_EQ(RaiseUnhandled(), EXCEPTION_EXECUTE_HANDLER);
    handler.reset(); // they keep what they use
    SetEvent(goOn.get());
    ExpectThreadsToEnd();
    EXPECT_EQ(limits.at(0), 30'000U);
    EXPECT_EQ(g_previous, 1);
    EXPECT_EQ(ExceptionType(), "Exception 0xc0000005");
}

// As Windows does it: all threads that are included are suspended, and one of them has a lock.
TEST_F(SentryCrashHandlerTest, Ends_the_process_when_the_minidump_waits_for_a_suspended_thread)
{
    const wil::unique_handle isWaiting(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const wil::unique_handle crashed(
        OpenThread(THREAD_SUSPEND_RESUME | THREAD_QUERY_LIMITED_INFORMATION, FALSE, GetCurrentThreadId()));
    ASSERT_TRUE(crashed);
    g_onDump = [&](const IncludesThread& includes) {
        EXPECT_TRUE(includes(ownThread));
        Wait(isWaiting);
        SuspendThread(crashed.get());
        Wait(goOn);
    };
    std::atomic<DWORD> limit = 0;
    onWait = [&](HANDLE handle, DWORD its) -> DWORD {
        if (GetCurrentThreadId() == ownThread)
        {
            SetEvent(isWaiting.get());
            return wait.Hidden(handle, c_long);
        }
        limit = its;
        return wait.Hidden(handle, 500);
    };
    std::atomic<int> ends = 0;
    std::atomic<UINT> code = 0;
    Fake<&TerminateProcess> terminate = [&](HANDLE process, UINT its) -> BOOL {
        EXPECT_EQ(process, GetCurrentProcess());
        code = its;
        ++ends;
        ResumeThread(crashed.get()); // instead of the end
        SetEvent(goOn.get());
        return TRUE;
    };
    RaiseUnhandled();
    ExpectThreadsToEnd();
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(code, static_cast<UINT>(EXCEPTION_ACCESS_VIOLATION));
    EXPECT_EQ(limit, 30'000U);
    EXPECT_TRUE(Exists(envelopePath));
}

TEST_F(SentryCrashHandlerTest, Does_without_a_minidump_where_it_gets_no_thread)
{
    for (const int failing : {1, 2})
    {
        DeleteFileW(envelopePath.c_str());
        Make();
        std::atomic<int> asked = 0;
        Fake<&CreateThread> create = [&](auto... arguments) -> HANDLE {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return ++asked == failing ? nullptr : create.Hidden(arguments...);
        };
        EXPECT_EQ(RaiseUnhandled(), EXCEPTION_EXECUTE_HANDLER);
        EXPECT_EQ(g_previous, failing);
        EXPECT_EQ(asked, failing);
        EXPECT_TRUE(Exists(envelopePath));
        EXPECT_THAT(g_dumps, IsEmpty());
    }
}

TEST_F(SentryCrashHandlerTest, Does_not_begin_again_when_it_crashes_itself)
{
    int envelopes = 0;
    onEnvelope = [&] {
        if (++envelopes == 1)
        {
            RaiseUnhandled();
        }
    };
    RaiseUnhandled();
    EXPECT_EQ(envelopes, 1);
    EXPECT_EQ(g_dumps.size(), 1U);
    EXPECT_EQ(g_previous, 2);
}

TEST_F(SentryCrashHandlerTest, Waits_when_another_thread_crashes_but_not_when_that_of_the_minidump_does)
{
    std::atomic<DWORD> crashing = 0;
    AnswerWaitsOf(crashing);
    const auto crash = [&] {
        crashing = GetCurrentThreadId();
        RaiseUnhandled();
        crashing = 0;
    };
    g_onDump = [&](const IncludesThread&) {
        crash();
        EXPECT_THAT(limits, IsEmpty());
        std::thread(crash).join();
        EXPECT_THAT(limits, ElementsAre(30'000U));
    };
    RaiseUnhandled();
    EXPECT_EQ(g_dumps.size(), 1U);
    EXPECT_EQ(g_previous, 3);
}

TEST_F(SentryCrashHandlerTest, Waits_in_the_end_for_a_thread_that_is_crashing)
{
    g_onDump = [&](const IncludesThread&) {
        SetEvent(isWriting.get());
        Wait(goOn);
        Sleep(0);
    };
    std::thread crashing([&, its = filter] { its(&pointers); });
    ASSERT_EQ(Wait(isWriting), WAIT_OBJECT_0);
    DWORD result = WAIT_FAILED;
    AnswerWaitsOf(ownThread, [&](HANDLE handle) {
        SetEvent(goOn.get());
        return result = wait.Hidden(handle, c_long);
    });
    handler.reset();
    EXPECT_THAT(limits, ElementsAre(2000U));
    EXPECT_EQ(result, WAIT_OBJECT_0);
    SetEvent(goOn.get());
    crashing.join();
    EXPECT_EQ(ReadFileText(minidumpPath), "MDMP");
}

TEST_F(SentryCrashHandlerTest, Does_not_wait_in_the_end_for_its_own_thread)
{
    onEnvelope = [&] {
        AnswerWaitsOf(ownThread);
        handler.reset();
        EXPECT_THAT(limits, IsEmpty());
        onWait = nullptr;
    };
    EXPECT_EQ(RaiseUnhandled(), EXCEPTION_EXECUTE_HANDLER);
    EXPECT_FALSE(handler);
}

TEST_F(SentryCrashHandlerTest, Does_not_wait_in_the_end_for_a_crash_that_is_over)
{
    std::thread([&] { RaiseUnhandled(); }).join(); // somebody got over it
    AnswerWaitsOf(ownThread);
    handler.reset();
    EXPECT_THAT(limits, IsEmpty());
}

TEST_F(SentryCrashHandlerTest, Does_nothing_after_its_end)
{
    const auto handlersFilter = filter;
    handler.reset();
    EXPECT_EQ(filter, &PreviousFilter);
    EXPECT_EQ(handlersFilter(&pointers), EXCEPTION_CONTINUE_SEARCH);
    EXPECT_FALSE(Exists(envelopePath));
    EXPECT_THAT(g_dumps, IsEmpty());
}

TEST_F(SentryCrashHandlerTest, Goes_on_without_a_filter_before)
{
    handler.reset();
    filter = nullptr;
    Make();
    EXPECT_EQ(RaiseUnhandled(), EXCEPTION_CONTINUE_SEARCH);
    handler.reset();
    EXPECT_EQ(std::exchange(filter, &PreviousFilter), nullptr);
}

TEST_F(SentryCrashHandlerTest, Reports_std_terminate)
{
    struct Ended
    {
    };
    handler.reset();
    const std::terminate_handler original = std::set_terminate([] { throw Ended(); });
    Make();
    EXPECT_THROW(std::get_terminate()(), Ended);
    handler.reset();
    EXPECT_NE(std::set_terminate(original), original);
    EXPECT_EQ(ExceptionType(), "Exception 0x40000015");
    EXPECT_EQ(g_dumps.size(), 1U);
}

TEST_F(SentryCrashHandlerTest, Reports_abort)
{
    handler.reset();
    const auto original = std::signal(SIGABRT, [](int) { ++g_previous; });
    Make();
    std::raise(SIGABRT);
    EXPECT_EQ(g_previous, 1);
    handler.reset();
    std::raise(SIGABRT); // the handler before is restored
    EXPECT_EQ(g_previous, 2);
    std::signal(SIGABRT, original);
    EXPECT_EQ(ExceptionType(), "Exception 0x40000015");
}

TEST_F(SentryCrashHandlerTest, Reserves_stack_for_itself)
{
    ULONG reserved = 0;
    Fake<&SetThreadStackGuarantee> guarantee = [&](PULONG bytes) {
        reserved = *bytes;
        return TRUE;
    };
    Make();
    EXPECT_EQ(reserved, 65536U);
}

} // namespace
