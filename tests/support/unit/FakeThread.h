#pragma once

#include <windows.h>

#include <gtest/gtest.h>

namespace Testing
{

// A thread that runs only while the test lets it, on the test's own thread: it stands still wherever a fake that it
// calls says so. Nothing ever happens at the same time.
class FakeThread
{
public:
    FakeThread() : m_test(ConvertThreadToFiber(nullptr)), m_filter(SetUnhandledExceptionFilter(&Fail)) {}
    FakeThread(const FakeThread&) = delete;
    FakeThread& operator=(const FakeThread&) = delete;
    ~FakeThread()
    {
        EXPECT_TRUE(m_fiber == nullptr || m_ended) << "the thread still runs";
        if (m_fiber != nullptr)
        {
            DeleteFiber(m_fiber);
        }
        SetUnhandledExceptionFilter(m_filter);
        ConvertFiberToThread();
    }

    // Runs the procedure until it stands still or ends. Once only.
    void Start(LPTHREAD_START_ROUTINE procedure, void* argument)
    {
        m_procedure = procedure;
        m_argument = argument;
        m_fiber = CreateFiber(0, &Run, this);
        SwitchToFiber(m_fiber);
    }

    // Lets the thread go on until it stands still again or ends.
    void GoOn()
    {
        ASSERT_FALSE(m_ended);
        SwitchToFiber(m_fiber);
    }

    // Called on the thread: gives way to the test until it says GoOn.
    void StandStill() { SwitchToFiber(m_test); }

    // Whether it is the thread that asks.
    bool IsCurrent() const { return m_fiber != nullptr && GetCurrentFiber() == m_fiber; }

    bool IsRunning() const { return m_fiber != nullptr && !m_ended; }
    DWORD ExitCode() const { return m_exitCode; }

private:
    static void CALLBACK Run(void* self)
    {
        auto& thread = *static_cast<FakeThread*>(self);
        thread.m_exitCode = thread.m_procedure(thread.m_argument);
        thread.m_ended = true;
        SwitchToFiber(thread.m_test); // for good: a fiber that returns would end the real thread
    }

    // Wine ends a process that crashes in a fiber with 0, as if all were well.
    static LONG WINAPI Fail(EXCEPTION_POINTERS*)
    {
        TerminateProcess(GetCurrentProcess(), 3);
        return EXCEPTION_CONTINUE_SEARCH;
    }

    void* m_test;
    LPTOP_LEVEL_EXCEPTION_FILTER m_filter;
    void* m_fiber = nullptr;
    LPTHREAD_START_ROUTINE m_procedure = nullptr;
    void* m_argument = nullptr;
    bool m_ended = false;
    DWORD m_exitCode = STILL_ACTIVE;
};

} // namespace Testing
