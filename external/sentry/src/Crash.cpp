#include "Crash.h"

#include "HeldFolder.h"
#include "Library.h"

#include <windows.h>

#include <dbghelp.h>

#include <wil/resource.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

// The dying process does not use the heap, which may be corrupt, and waits for nothing without a timeout. So its lock
// is one of Windows': the runtime's allocate when they are first used. MiniDumpWriteDump may deadlock on the loader's
// lock or the heap's, held by the thread that crashed or by one that it has suspended itself. So it gets a thread of
// its own, and a watchdog thread that it does not suspend.
namespace Reporter
{

namespace
{

constexpr std::size_t c_breadcrumbLimit = 100;

// STATUS_FATAL_APP_EXIT, as Microsoft's runtime reports abort.
constexpr DWORD c_aborted = 0x40000015;

// For the minidump, and for another crashing thread that waits for it, in milliseconds: on a busy machine a minidump
// takes many seconds.
constexpr DWORD c_minidumpLimit = 30'000;

// How long the destructor waits for a crash, in milliseconds.
constexpr DWORD c_endLimit = 2000;

// Attempts at the breadcrumbs' lock: its owner may be the thread that crashed.
constexpr int c_lockAttempts = 1000;

void WriteText(HANDLE file, std::string_view text)
{
    DWORD written = 0;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

} // namespace

void ReserveStack() noexcept
{
    ULONG bytes = 64 * 1024;
    SetThreadStackGuarantee(&bytes);
}

struct CrashHandler::State
{
    explicit State(CrashPlan itsPlan) : plan(std::move(itsPlan)) {}

    CrashPlan plan;
    wil::unique_handle written{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    std::atomic<DWORD> crashedThread = 0;
    MINIDUMP_EXCEPTION_INFORMATION information{};
    DWORD code = 0; // of the exception
    std::atomic<DWORD> watchingThread = 0;
    std::atomic<DWORD> writingThread = 0;
    bool areThreadsLeft = false; // they timed out, and may still use the state

    wil::srwlock lock;
    std::deque<std::string> breadcrumbs; // guarded by it

    LPTOP_LEVEL_EXCEPTION_FILTER previousFilter = nullptr;
    std::terminate_handler previousTerminate = nullptr;
    using SignalHandler = void (*)(int);
    SignalHandler previousAbort = SIG_DFL;

    void Write(EXCEPTION_POINTERS* exception);
    bool IsForMinidump(DWORD thread) const noexcept { return thread == watchingThread || thread == writingThread; }
    void WriteEnvelope();
    void WriteMinidump(EXCEPTION_POINTERS* exception);
    static DWORD WINAPI WatchMinidump(void* parameter) noexcept;
    static DWORD WINAPI WriteMinidumpHere(void* parameter) noexcept;
    static BOOL CALLBACK ChooseContent(void* parameter, MINIDUMP_CALLBACK_INPUT* input,
                                       MINIDUMP_CALLBACK_OUTPUT* output);
    void WriteFromHere();

    static LONG WINAPI OnException(EXCEPTION_POINTERS* exception);
    static void OnTerminate();
    static void OnAbort(int signal);

    class Use;
    static inline std::atomic<State*> s_current = nullptr;
    static inline std::atomic<int> s_users = 0; // threads that may be using it
};

// The state of the handler, held by a crash that uses it; null without a handler.
class CrashHandler::State::Use
{
public:
    Use() noexcept : m_state(Enter()) {}
    ~Use() { --s_users; }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    State* operator->() const noexcept { return m_state; }
    explicit operator bool() const noexcept { return m_state != nullptr; }

private:
    // Counts before it loads the state; the destructor does the opposite.
    static State* Enter() noexcept
    {
        ++s_users;
        return s_current;
    }

    State* m_state;
};

void CrashHandler::State::Write(EXCEPTION_POINTERS* exception)
{
    const DWORD thread = GetCurrentThreadId();
    DWORD none = 0;
    if (!crashedThread.compare_exchange_strong(none, thread))
    {
        // The same thread again: the handler crashed, or std::terminate goes on to abort.
        if (none != thread && !IsForMinidump(thread))
        {
            WaitForSingleObject(written.get(), c_minidumpLimit);
        }
        return;
    }
    code = exception->ExceptionRecord->ExceptionCode;
    WriteEnvelope();
    WriteMinidump(exception);
    SetEvent(written.get());
}

void CrashHandler::State::WriteEnvelope()
{
    const wil::unique_hfile file = CreateFileIn(plan.folder.get(), plan.envelopeName);
    if (!file)
    {
        return;
    }
    CrashEnvelope& envelope = plan.envelope;
    std::ranges::copy(TimestampNow(), envelope.head.data() + envelope.timestampOffset);
    for (std::size_t i = 0; i < 8; ++i)
    {
        envelope.head[envelope.codeOffset + i] = "0123456789abcdef"[(code >> (28 - 4 * i)) & 0x0F];
    }
    WriteText(file.get(), envelope.head);
    auto held = lock.try_lock_exclusive();
    for (int i = 1; i < c_lockAttempts && !held; ++i)
    {
        SwitchToThread();
        held = lock.try_lock_exclusive();
    }
    if (held)
    {
        for (std::size_t i = 0; i < breadcrumbs.size(); ++i)
        {
            WriteText(file.get(), i == 0 ? "" : ",");
            WriteText(file.get(), breadcrumbs[i]);
        }
    }
    WriteText(file.get(), envelope.tail);
}

void CrashHandler::State::WriteMinidump(EXCEPTION_POINTERS* exception)
{
    information = {GetCurrentThreadId(), exception, FALSE};
    const wil::unique_handle watching(CreateThread(nullptr, 0, WatchMinidump, this, 0, nullptr));
    if (watching)
    {
        // It does not even start where this thread has the loader's lock.
        areThreadsLeft = WaitForSingleObject(watching.get(), c_minidumpLimit) != WAIT_OBJECT_0;
    }
}

// Ends the process after the timeout: the thread that crashed may be suspended for good.
DWORD WINAPI CrashHandler::State::WatchMinidump(void* parameter) noexcept
{
    State& state = *static_cast<State*>(parameter);
    state.watchingThread = GetCurrentThreadId();
    const wil::unique_handle writing(CreateThread(nullptr, 0, WriteMinidumpHere, parameter, 0, nullptr));
    if (writing && WaitForSingleObject(writing.get(), c_minidumpLimit) != WAIT_OBJECT_0)
    {
        TerminateProcess(GetCurrentProcess(), state.code);
    }
    return 0;
}

DWORD WINAPI CrashHandler::State::WriteMinidumpHere(void* parameter) noexcept
{
    State& state = *static_cast<State*>(parameter);
    state.writingThread = GetCurrentThreadId();
    // Loaded here, not at the start of every run: it needs the loader's lock, as the start of this thread did.
    const auto writeDump =
        FindFunction<decltype(&MiniDumpWriteDump)>(LoadSystemLibrary(L"dbghelp.dll"), "MiniDumpWriteDump");
    const wil::unique_hfile file =
        writeDump ? CreateFileIn(state.plan.folder.get(), state.plan.minidumpName) : wil::unique_hfile();
    if (file)
    {
        MINIDUMP_CALLBACK_INFORMATION callback{ChooseContent, parameter};
        writeDump(GetCurrentProcess(), GetCurrentProcessId(), file.get(), MiniDumpNormal, &state.information, nullptr,
                  &callback);
    }
    return 0;
}

// Excludes the threads of the minidump, which keeps them from being suspended.
BOOL CALLBACK CrashHandler::State::ChooseContent(void* parameter, MINIDUMP_CALLBACK_INPUT* input,
                                                 MINIDUMP_CALLBACK_OUTPUT* /*output*/)
{
    const State& state = *static_cast<const State*>(parameter);
    switch (input->CallbackType)
    {
    case IncludeThreadCallback:
        return !state.IsForMinidump(input->IncludeThread.ThreadId);
    case IncludeModuleCallback:
    case ModuleCallback:
    case ThreadCallback:
        return TRUE;
    default:
        return FALSE;
    }
}

// For an end that is no exception of Windows.
void CrashHandler::State::WriteFromHere()
{
    CONTEXT context{};
    RtlCaptureContext(&context);
    EXCEPTION_RECORD record{};
    record.ExceptionCode = c_aborted;
    record.ExceptionFlags = EXCEPTION_NONCONTINUABLE;
    record.ExceptionAddress = reinterpret_cast<void*>(context.Rip);
    EXCEPTION_POINTERS exception{&record, &context};
    Write(&exception);
}

LONG WINAPI CrashHandler::State::OnException(EXCEPTION_POINTERS* exception)
{
    LPTOP_LEVEL_EXCEPTION_FILTER next = nullptr;
    if (const Use state; state)
    {
        state->Write(exception);
        next = state->previousFilter;
    }
    return next ? next(exception) : EXCEPTION_CONTINUE_SEARCH;
}

void CrashHandler::State::OnTerminate()
{
    std::terminate_handler next = std::abort;
    if (const Use state; state)
    {
        state->WriteFromHere();
        next = state->previousTerminate ? state->previousTerminate : next;
    }
    next();
}

void CrashHandler::State::OnAbort(int signal)
{
    auto next = SIG_DFL;
    if (const Use state; state)
    {
        state->WriteFromHere();
        next = state->previousAbort;
    }
    if (next != SIG_DFL && next != SIG_IGN && next != SIG_ERR)
    {
        next(signal);
    }
}

CrashHandler::CrashHandler(CrashPlan plan) : m_state(std::make_unique<State>(std::move(plan)))
{
    ReserveStack();
    State::s_current = m_state.get();
    m_state->previousFilter = SetUnhandledExceptionFilter(State::OnException);
    m_state->previousTerminate = std::set_terminate(State::OnTerminate);
    m_state->previousAbort = std::signal(SIGABRT, State::OnAbort);
}

CrashHandler::~CrashHandler()
{
    SetUnhandledExceptionFilter(m_state->previousFilter);
    std::set_terminate(m_state->previousTerminate);
    std::signal(SIGABRT, m_state->previousAbort == SIG_ERR ? SIG_DFL : m_state->previousAbort);
    State::s_current = nullptr;
    if (State::s_users != 0 || m_state->areThreadsLeft)
    {
        // Another thread is crashing: it keeps the state.
        if (m_state->crashedThread != GetCurrentThreadId())
        {
            WaitForSingleObject(m_state->written.get(), c_endLimit);
        }
        static_cast<void>(m_state.release()); // NOLINT(bugprone-unused-return-value)
    }
}

void CrashHandler::AddBreadcrumb(const std::string& breadcrumb)
{
    const auto held = m_state->lock.lock_exclusive();
    m_state->breadcrumbs.push_back(breadcrumb);
    if (m_state->breadcrumbs.size() > c_breadcrumbLimit)
    {
        m_state->breadcrumbs.pop_front();
    }
}

} // namespace Reporter
