#include "Crash.h"
#include "support/EnvelopeParser.h"
#include "support/ImportTableFake.h"
#include "support/OutOfMemory.h"
#include "support/TestFolder.h"

#include <windows.h>

#include <dbghelp.h>

#include <gmock/gmock.h>
#include <wil/resource.h>

#include <atomic>
#include <bit>
#include <csignal>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
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
    DWORD thread = 0; // that it was called on
};

std::vector<Dump> g_dumps;
std::function<void()> g_onDump;
std::function<void(const std::function<bool(DWORD)>& includes)> g_onThreads; // is told whether a thread is to be in it
int g_previous = 0;                                                          // calls of what the process had set before

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
    if (g_onThreads)
    {
        g_onThreads([&](DWORD thread) { return asks(IncludeThreadCallback, thread); });
    }
    g_onDump();
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
        g_onDump = [] {};
        g_onThreads = nullptr;
        g_previous = 0;
        record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
        Make();
    }

    ~SentryCrashHandlerTest() override
    {
        handler.reset();
        EXPECT_EQ(filter, &PreviousFilter);
        for (const wil::unique_handle& thread : threads) // also one that nobody has waited for
        {
            EXPECT_EQ(WaitForSingleObject(thread.get(), c_long), WAIT_OBJECT_0);
        }
    }

    void Make()
    {
        handler = std::make_unique<CrashHandler>(
            CrashPlan{.envelope = MakeCrashEnvelope({.release = "r", .environment = "e"}, c_id),
                      .envelopePath = envelopePath,
                      .minidumpPath = minidumpPath});
    }

    // As Windows does for an exception that nobody handles.
    LONG RaiseUnhandled() { return filter(&pointers); }

    nlohmann::json Event() const { return EventOf(ParseEnvelope(ReadFileText(envelopePath))); }

    TestFolder root;
    std::wstring envelopePath = root / L"1.envelope";
    std::wstring minidumpPath = root / L"1.dmp";
    EXCEPTION_RECORD record{};
    CONTEXT context{};
    EXCEPTION_POINTERS pointers{&record, &context};
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
    std::vector<wil::unique_handle> threads; // those that the handler has made
    Fake<&CreateThread> createThread = [this](LPSECURITY_ATTRIBUTES attributes, SIZE_T stack,
                                              LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD flags, LPDWORD id) {
        const HANDLE made = createThread.Hidden(attributes, stack, start, parameter, flags, id);
        HANDLE copy = nullptr;
        DuplicateHandle(GetCurrentProcess(), made, GetCurrentProcess(), &copy, 0, FALSE, DUPLICATE_SAME_ACCESS);
        threads.emplace_back(copy);
        return made;
    };
    std::unique_ptr<CrashHandler> handler;
};

TEST_F(SentryCrashHandlerTest, writes_an_envelope_and_a_minidump_and_goes_on_with_what_was_set_before)
{
    handler->AddBreadcrumb(R"({"message":"one"})");
    handler->AddBreadcrumb(R"({"message":"two"})");
    const Timestamp before = TimestampNow();

    EXPECT_EQ(RaiseUnhandled(), EXCEPTION_EXECUTE_HANDLER);

    EXPECT_EQ(g_previous, 1);
    const auto event = Event();
    EXPECT_EQ(event["event_id"], c_id);
    EXPECT_EQ(event["level"], "fatal");
    EXPECT_EQ(event["exception"]["values"][0]["type"], "Exception 0xc0000005");
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
    EXPECT_EQ(loadFlags, DWORD{LOAD_LIBRARY_SEARCH_SYSTEM32});
}

TEST_F(SentryCrashHandlerTest, every_digit_of_the_code_is_told)
{
    record.ExceptionCode = 0x1234ABEF;
    RaiseUnhandled();
    EXPECT_EQ(Event()["exception"]["values"][0]["type"], "Exception 0x1234abef");
}

TEST_F(SentryCrashHandlerTest, needs_no_memory)
{
    {
        const OutOfMemory outOfMemory;
        RaiseUnhandled();
    }
    EXPECT_EQ(Event()["breadcrumbs"], nlohmann::json::array());
    EXPECT_TRUE(Exists(minidumpPath));
}

TEST_F(SentryCrashHandlerTest, keeps_the_last_hundred_breadcrumbs)
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

TEST_F(SentryCrashHandlerTest, does_without_breadcrumbs_that_somebody_is_working_on_for_ever)
{
    handler->AddBreadcrumb("1");
    int attempts = 0;
    {
        Fake<&TryAcquireSRWLockExclusive> acquire = [&](PSRWLOCK) -> BOOLEAN {
            ++attempts;
            return FALSE;
        };
        RaiseUnhandled();
    }
    EXPECT_EQ(attempts, 1000);
    EXPECT_EQ(Event()["breadcrumbs"], nlohmann::json::array());
}

TEST_F(SentryCrashHandlerTest, waits_a_little_for_somebody_who_is_adding_a_breadcrumb)
{
    handler->AddBreadcrumb("1");
    int attempts = 0;
    {
        Fake<&TryAcquireSRWLockExclusive> acquire = [&](PSRWLOCK lock) -> BOOLEAN {
            return ++attempts == 1000 && acquire.Hidden(lock) != FALSE;
        };
        RaiseUnhandled();
    }
    EXPECT_EQ(Event()["breadcrumbs"], nlohmann::json::array({1}));
}

TEST_F(SentryCrashHandlerTest, overwrites_nothing)
{
    root.AddFile(L"1.envelope", "somebody's");
    root.AddFile(L"1.dmp", "somebody's");
    RaiseUnhandled();
    EXPECT_EQ(ReadFileText(envelopePath), "somebody's");
    EXPECT_EQ(ReadFileText(minidumpPath), "somebody's");
}

TEST_F(SentryCrashHandlerTest, writes_through_no_link)
{
    std::vector<DWORD> flags;
    {
        Fake<&CreateFileW> create = [&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes,
                                        DWORD disposition, DWORD its, HANDLE pattern) {
            EXPECT_EQ(disposition, DWORD{CREATE_NEW});
            flags.push_back(its & FILE_FLAG_OPEN_REPARSE_POINT);
            return create.Hidden(path, access, share, attributes, disposition, its, pattern);
        };
        RaiseUnhandled();
    }
    EXPECT_THAT(flags, ElementsAre(DWORD{FILE_FLAG_OPEN_REPARSE_POINT}, DWORD{FILE_FLAG_OPEN_REPARSE_POINT}));
}

TEST_F(SentryCrashHandlerTest, does_without_a_minidump_where_the_library_is_not_there)
{
    handler.reset();
    hasDebugHelp = false;
    Make();
    RaiseUnhandled();
    EXPECT_TRUE(Exists(envelopePath));
    EXPECT_FALSE(Exists(minidumpPath));
}

TEST_F(SentryCrashHandlerTest, leaves_the_threads_out_that_are_there_for_the_minidump_alone)
{
    std::vector<DWORD> made;
    made.reserve(10);
    std::vector<bool> areIncluded;
    areIncluded.reserve(10);
    bool isCrashedIncluded = false;
    const DWORD crashed = GetCurrentThreadId();
    {
        Fake<&CreateThread> create = [&](LPSECURITY_ATTRIBUTES attributes, SIZE_T stack, LPTHREAD_START_ROUTINE start,
                                         LPVOID parameter, DWORD flags, LPDWORD) {
            const HANDLE thread = create.Hidden(attributes, stack, start, parameter, flags | CREATE_SUSPENDED, nullptr);
            made.push_back(GetThreadId(thread));
            ResumeThread(thread);
            return thread;
        };
        g_onThreads = [&](const std::function<bool(DWORD)>& includes) {
            isCrashedIncluded = includes(crashed);
            for (const DWORD thread : made)
            {
                areIncluded.push_back(includes(thread));
            }
        };
        RaiseUnhandled();
    }
    EXPECT_TRUE(isCrashedIncluded);
    EXPECT_THAT(areIncluded, ElementsAre(false, false));
    EXPECT_THAT(made, testing::Contains(g_dumps.at(0).thread));
}

TEST_F(SentryCrashHandlerTest, goes_on_when_the_minidump_takes_for_ever)
{
    const wil::unique_handle goOn(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const wil::unique_handle isWriting(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    g_onDump = [&] {
        SetEvent(isWriting.get());
        WaitForSingleObject(goOn.get(), c_long);
    };
    const DWORD crashing = GetCurrentThreadId();
    std::optional<DWORD> limit;
    {
        Fake<&WaitForSingleObject> wait = [&](HANDLE handle, DWORD its) -> DWORD {
            if (GetCurrentThreadId() != crashing)
            {
                return wait.Hidden(handle, its);
            }
            limit = its;
            wait.Hidden(isWriting.get(), c_long);
            return WAIT_TIMEOUT;
        };
        EXPECT_EQ(RaiseUnhandled(), EXCEPTION_EXECUTE_HANDLER);
        handler.reset(); // they keep what they use
        SetEvent(goOn.get());
        for (const wil::unique_handle& thread : threads) // before what they use of this test goes
        {
            wait.Hidden(thread.get(), c_long);
        }
    }
    EXPECT_EQ(limit, 30'000U);
    EXPECT_EQ(g_previous, 1);
    EXPECT_EQ(Event()["exception"]["values"][0]["type"], "Exception 0xc0000005");
}

// As Windows does it: all other threads that are to be in the minidump are suspended, and one of them has a lock.
TEST_F(SentryCrashHandlerTest, ends_the_process_when_the_minidump_waits_for_what_a_suspended_thread_has)
{
    const wil::unique_handle isWaiting(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const wil::unique_handle goOn(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const wil::unique_handle crashed(
        OpenThread(THREAD_SUSPEND_RESUME | THREAD_QUERY_LIMITED_INFORMATION, FALSE, GetCurrentThreadId()));
    ASSERT_TRUE(crashed);
    const DWORD crashedId = GetCurrentThreadId();
    g_onThreads = [&](const std::function<bool(DWORD)>& includes) {
        ASSERT_TRUE(includes(crashedId));
        WaitForSingleObject(isWaiting.get(), c_long);
        SuspendThread(crashed.get());
    };
    g_onDump = [&] { WaitForSingleObject(goOn.get(), c_long); };
    std::atomic<DWORD> limit = 0;
    std::atomic<int> ends = 0;
    std::atomic<UINT> code = 0;
    {
        Fake<&WaitForSingleObject> wait = [&](HANDLE handle, DWORD its) -> DWORD {
            if (GetCurrentThreadId() == crashedId)
            {
                SetEvent(isWaiting.get());
                return wait.Hidden(handle, c_long);
            }
            if (handle == goOn.get() || handle == isWaiting.get())
            {
                return wait.Hidden(handle, c_long);
            }
            limit = its;
            return wait.Hidden(handle, 500);
        };
        Fake<&TerminateProcess> terminate = [&](HANDLE process, UINT its) -> BOOL {
            EXPECT_EQ(process, GetCurrentProcess());
            code = its;
            ++ends;
            ResumeThread(crashed.get()); // instead of the end
            SetEvent(goOn.get());
            return TRUE;
        };
        RaiseUnhandled();
        for (const wil::unique_handle& thread : threads)
        {
            wait.Hidden(thread.get(), c_long);
        }
        EXPECT_EQ(ends, 1);
        EXPECT_EQ(code, static_cast<UINT>(EXCEPTION_ACCESS_VIOLATION));
        EXPECT_EQ(limit, 30'000U);
    }
    EXPECT_TRUE(Exists(envelopePath));
}

// A dying process may get no thread any more: neither the first nor the second.
TEST_F(SentryCrashHandlerTest, does_without_a_minidump_where_there_is_no_thread_for_it)
{
    for (const int failing : {1, 2})
    {
        DeleteFileW(envelopePath.c_str());
        handler.reset();
        Make();
        std::atomic<int> asked = 0;
        Fake<&CreateThread> create = [&](LPSECURITY_ATTRIBUTES attributes, SIZE_T stack, LPTHREAD_START_ROUTINE start,
                                         LPVOID parameter, DWORD flags, LPDWORD id) -> HANDLE {
            if (++asked == failing)
            {
                SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                return nullptr;
            }
            return create.Hidden(attributes, stack, start, parameter, flags, id);
        };
        EXPECT_EQ(RaiseUnhandled(), EXCEPTION_EXECUTE_HANDLER);
        EXPECT_EQ(g_previous, failing);
        EXPECT_EQ(asked, failing);
        EXPECT_TRUE(Exists(envelopePath));
        EXPECT_THAT(g_dumps, IsEmpty());
    }
}

TEST_F(SentryCrashHandlerTest, does_not_begin_again_when_it_crashes_itself)
{
    int envelopes = 0;
    Fake<&CreateFileW> create = [&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes,
                                    DWORD disposition, DWORD flags, HANDLE pattern) {
        if (path == envelopePath && ++envelopes == 1)
        {
            RaiseUnhandled();
        }
        return create.Hidden(path, access, share, attributes, disposition, flags, pattern);
    };
    RaiseUnhandled();
    EXPECT_EQ(envelopes, 1);
    EXPECT_EQ(g_dumps.size(), 1U);
    EXPECT_EQ(g_previous, 2);
}

TEST_F(SentryCrashHandlerTest, a_crash_while_the_minidump_is_written_waits_for_nobody)
{
    std::vector<DWORD> waits;
    waits.reserve(10);
    g_onDump = [&] {
        const DWORD writing = GetCurrentThreadId();
        Fake<&WaitForSingleObject> wait = [&](HANDLE handle, DWORD limit) -> DWORD {
            if (GetCurrentThreadId() == writing)
            {
                waits.push_back(limit);
                return WAIT_TIMEOUT;
            }
            return wait.Hidden(handle, limit);
        };
        RaiseUnhandled();
    };
    RaiseUnhandled();
    EXPECT_THAT(waits, IsEmpty());
    EXPECT_EQ(g_dumps.size(), 1U);
    EXPECT_EQ(g_previous, 2);
}

TEST_F(SentryCrashHandlerTest, lets_a_second_thread_that_crashes_wait_for_the_first)
{
    std::optional<DWORD> limit;
    std::atomic<DWORD> second = 0;
    Fake<&WaitForSingleObject> wait = [&](HANDLE handle, DWORD its) -> DWORD {
        if (GetCurrentThreadId() != second)
        {
            return wait.Hidden(handle, its); // for the second thread's end
        }
        limit = its;
        return WAIT_TIMEOUT;
    };
    g_onDump = [&] {
        std::thread([&] {
            second = GetCurrentThreadId();
            RaiseUnhandled();
        }).join();
    };
    RaiseUnhandled();
    EXPECT_EQ(limit, 30'000U);
    EXPECT_EQ(g_dumps.size(), 1U);
}

TEST_F(SentryCrashHandlerTest, waits_in_the_end_for_a_thread_that_is_crashing)
{
    const wil::unique_handle isWriting(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const wil::unique_handle goOn(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    g_onDump = [&] {
        SetEvent(isWriting.get());
        WaitForSingleObject(goOn.get(), c_long);
        Sleep(0);
    };
    const auto handlersFilter = filter;
    std::thread crashing([&] { handlersFilter(&pointers); });
    ASSERT_EQ(WaitForSingleObject(isWriting.get(), c_long), WAIT_OBJECT_0);
    const DWORD ending = GetCurrentThreadId();
    std::vector<DWORD> limits;
    DWORD result = WAIT_FAILED;
    Fake<&WaitForSingleObject> wait = [&](HANDLE handle, DWORD limit) {
        if (GetCurrentThreadId() != ending)
        {
            return wait.Hidden(handle, limit);
        }
        limits.push_back(limit);
        SetEvent(goOn.get());
        result = wait.Hidden(handle, c_long);
        return result;
    };
    handler.reset();
    EXPECT_THAT(limits, ElementsAre(2000U));
    EXPECT_EQ(result, WAIT_OBJECT_0);
    SetEvent(goOn.get());
    crashing.join();
    EXPECT_EQ(ReadFileText(minidumpPath), "MDMP");
}

TEST_F(SentryCrashHandlerTest, does_not_wait_in_the_end_for_its_own_thread)
{
    int waits = 0;
    const DWORD crashing = GetCurrentThreadId();
    Fake<&CreateFileW> create = [&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes,
                                    DWORD disposition, DWORD flags, HANDLE pattern) {
        if (GetCurrentThreadId() == crashing)
        {
            Fake<&WaitForSingleObject> wait = [&](HANDLE, DWORD) -> DWORD {
                ++waits;
                return WAIT_TIMEOUT;
            };
            handler.reset();
        }
        return create.Hidden(path, access, share, attributes, disposition, flags, pattern);
    };
    const auto handlersFilter = filter;
    EXPECT_EQ(handlersFilter(&pointers), EXCEPTION_EXECUTE_HANDLER);
    EXPECT_EQ(waits, 0);
}

TEST_F(SentryCrashHandlerTest, does_not_wait_in_the_end_for_a_crash_that_is_over)
{
    const auto handlersFilter = filter;
    std::thread([&] { handlersFilter(&pointers); }).join(); // somebody got over it
    int waits = 0;
    Fake<&WaitForSingleObject> wait = [&](HANDLE, DWORD) -> DWORD {
        ++waits;
        return WAIT_TIMEOUT;
    };
    handler.reset();
    EXPECT_EQ(waits, 0);
}

TEST_F(SentryCrashHandlerTest, does_nothing_after_its_end)
{
    const auto handlersFilter = filter;
    handler.reset();
    EXPECT_EQ(filter, &PreviousFilter);
    EXPECT_EQ(handlersFilter(&pointers), EXCEPTION_CONTINUE_SEARCH);
    EXPECT_FALSE(Exists(envelopePath));
    EXPECT_THAT(g_dumps, IsEmpty());
}

TEST_F(SentryCrashHandlerTest, goes_on_where_nothing_was_set_before)
{
    handler.reset();
    filter = nullptr;
    Make();
    EXPECT_EQ(RaiseUnhandled(), EXCEPTION_CONTINUE_SEARCH);
    handler.reset();
    EXPECT_EQ(filter, nullptr);
    filter = &PreviousFilter;
}

TEST_F(SentryCrashHandlerTest, sees_a_terminate)
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
    EXPECT_EQ(Event()["exception"]["values"][0]["type"], "Exception 0x40000015");
    ASSERT_EQ(g_dumps.size(), 1U);
}

TEST_F(SentryCrashHandlerTest, sees_an_abort)
{
    handler.reset();
    const auto original = std::signal(SIGABRT, [](int) { ++g_previous; });
    Make();
    std::raise(SIGABRT);
    EXPECT_EQ(g_previous, 1);
    handler.reset();
    std::raise(SIGABRT); // the handler of before is back
    EXPECT_EQ(g_previous, 2);
    std::signal(SIGABRT, original);
    EXPECT_EQ(Event()["exception"]["values"][0]["type"], "Exception 0x40000015");
}

TEST_F(SentryCrashHandlerTest, leaves_room_for_itself_on_the_stack)
{
    ULONG room = 0;
    Fake<&SetThreadStackGuarantee> guarantee = [&](PULONG bytes) {
        room = *bytes;
        return TRUE;
    };
    handler.reset();
    Make();
    EXPECT_EQ(room, 65536U);
}

} // namespace
