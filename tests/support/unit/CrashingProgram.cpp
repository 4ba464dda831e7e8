// A program that starts crash reporting, leaves a breadcrumb, and ends in the way that it is told:
//     CrashingProgram DSN DATABASE_FOLDER access|throw|abort|thread|stack|raised-stack|filtered-stack
// The last one starts no crash reporting; its exit code is 7 when its own filter is told of the overflow.
#include <windows.h>

#include <sentry.h>

#include <cstdlib>
#include <stdexcept>
#include <string_view>

namespace
{

volatile int* volatile g_nowhere = nullptr;

// The compiler is not to see that this has no end.
volatile bool g_goesOn = true;

DWORD WINAPI Crash(void* /*parameter*/)
{
    RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr);
    return 0;
}

int Overflow(int depth)
{
    volatile char space[4096]{};
    space[depth % 4096] = 1;
    return g_goesOn ? Overflow(depth + 1) + space[0] : depth;
}

LONG WINAPI EndWithSeven(EXCEPTION_POINTERS* /*exception*/)
{
    TerminateProcess(GetCurrentProcess(), 7);
    return EXCEPTION_EXECUTE_HANDLER;
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 4)
    {
        return 2;
    }
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    const std::string_view end = arguments[3];
    if (end == "filtered-stack")
    {
        SetUnhandledExceptionFilter(EndWithSeven);
        return Overflow(0);
    }
    sentry_options_t* const options = sentry_options_new();
    sentry_options_set_dsn(options, arguments[1]);
    sentry_options_set_database_path(options, arguments[2]);
    sentry_options_set_release(options, "crashing@1.0");
    if (sentry_init(options) != 0)
    {
        return 3;
    }
    sentry_add_breadcrumb(sentry_value_new_breadcrumb(nullptr, "about to crash"));

    if (end == "access")
    {
        __asm__ volatile("movl $1, (%0)" : : "r"(g_nowhere) : "memory");
    }
    else if (end == "throw")
    {
        throw std::runtime_error("nobody catches this");
    }
    else if (end == "abort")
    {
        std::abort();
    }
    else if (end == "thread")
    {
        WaitForSingleObject(CreateThread(nullptr, 0, Crash, nullptr, 0, nullptr), INFINITE);
    }
    else if (end == "stack")
    {
        return Overflow(0);
    }
    else if (end == "raised-stack")
    {
        RaiseException(EXCEPTION_STACK_OVERFLOW, 0, 0, nullptr);
    }
    return 0;
}
