// A program that does to services what the uninstaller does, so that the tests' own means can be tested without it:
//     stop SERVICE REASON COMMENT   sends the control to stop with that reason (a number) and comment
//     await SERVICE                 waits until it has stopped
//     kill SERVICE                  ends its process
//     copied TARGET ...             does the rest as a copy of itself at that path, and waits for that
// Several follow one another. The exit code has the error number of the first that fails, or 0, and above it the
// service's state after the last: see ProbeResult in the tests.
#include "support/Owners.h"
#include "support/Services.h"
#include "support/product/Product.h"
#include "support/product/Start.h"

#include <windows.h>

#include <string>
#include <string_view>

namespace Testing
{
namespace
{
constexpr DWORD c_limit = 30'000;

struct Outcome
{
    DWORD error = ERROR_SUCCESS;
    DWORD state = 0;
};

SERVICE_STATUS_PROCESS Query(SC_HANDLE service)
{
    SERVICE_STATUS_PROCESS status{};
    DWORD size = 0;
    QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof(status), &size);
    return status;
}

UniqueService Open(const wchar_t* name)
{
    const UniqueService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    return UniqueService(OpenServiceW(manager.get(), name, SERVICE_QUERY_STATUS | SERVICE_STOP));
}

Outcome Stop(const wchar_t* name, const wchar_t* reason, wchar_t* comment)
{
    const UniqueService service = Open(name);
    SERVICE_CONTROL_STATUS_REASON_PARAMSW parameters{};
    parameters.dwReason = std::wcstoul(reason, nullptr, 0);
    parameters.pszComment = comment;
    const BOOL isDone =
        ControlServiceExW(service.get(), SERVICE_CONTROL_STOP, SERVICE_CONTROL_STATUS_REASON_INFO, &parameters);
    return {isDone ? ERROR_SUCCESS : GetLastError(), parameters.ServiceStatus.dwCurrentState};
}

Outcome Await(const wchar_t* name)
{
    const UniqueService service = Open(name);
    const ULONGLONG end = GetTickCount64() + c_limit;
    DWORD state = Query(service.get()).dwCurrentState;
    while (state != SERVICE_STOPPED)
    {
        if (GetTickCount64() > end)
        {
            return {ERROR_TIMEOUT, state};
        }
        Sleep(1);
        state = Query(service.get()).dwCurrentState;
    }
    return {ERROR_SUCCESS, state};
}

Outcome Kill(const wchar_t* name)
{
    const UniqueService service = Open(name);
    const UniqueHandle process(OpenProcess(PROCESS_TERMINATE, FALSE, Query(service.get()).dwProcessId));
    return {TerminateProcess(process.get(), 0) ? ERROR_SUCCESS : GetLastError(), 0};
}

// Returns the exit code of the copy.
DWORD RunCopy(const wchar_t* target, std::span<wchar_t* const> rest)
{
    wchar_t own[MAX_PATH]{};
    GetModuleFileNameW(nullptr, own, MAX_PATH);
    if (!CopyFileW(own, target, FALSE))
    {
        return GetLastError();
    }
    std::wstring commandLine = L"\"" + std::wstring(target) + L"\"";
    for (const wchar_t* argument : rest)
    {
        commandLine += L" \"" + std::wstring(argument) + L"\"";
    }
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(target, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started))
    {
        return GetLastError();
    }
    const UniqueHandle process(started.hProcess);
    const UniqueHandle thread(started.hThread);
    WaitForSingleObject(process.get(), INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(process.get(), &code);
    return code;
}

DWORD Run(std::span<wchar_t* const> arguments)
{
    Outcome outcome;
    while (!arguments.empty() && outcome.error == ERROR_SUCCESS)
    {
        const std::wstring_view verb = arguments[0];
        std::size_t used = 2;
        if (verb == L"stop" && arguments.size() >= 4)
        {
            outcome = Stop(arguments[1], arguments[2], arguments[3]);
            used = 4;
        }
        else if (verb == L"await" && arguments.size() >= 2)
        {
            outcome = Await(arguments[1]);
        }
        else if (verb == L"kill" && arguments.size() >= 2)
        {
            outcome = Kill(arguments[1]);
        }
        else if (verb == L"copied" && arguments.size() >= 2)
        {
            return RunCopy(arguments[1], arguments.subspan(2));
        }
        else
        {
            return c_wronglyStarted;
        }
        arguments = arguments.subspan(used);
    }
    return outcome.state << 16U | outcome.error;
}
} // namespace
} // namespace Testing

// The program's entry point.
int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int)
{
    return static_cast<int>(Testing::Run(Testing::Arguments()));
}
