// A library that the tests load into a program which they start: under Wine it stands in for ControlServiceExW, which
// Wine does not have (it ends the program that calls it); when a test says so it ends the program in the middle of its
// work; and it follows the program into the processes that it starts. It judges the program's calls of Windows by their
// contracts. The program knows nothing of it: the library replaces the functions in the program's import table.
#include "support/common/ImportTableFake.h"
#include "support/common/contract/Contract.h"
#include "support/end_to_end/Wine.h"
#include "support/end_to_end/stand_ins/DirectorySearch.h"
#include "support/end_to_end/stand_ins/LoadIntoProcess.h"
#include "support/end_to_end/stand_ins/SharedRecord.h"

#include <windows.h>

#include <cstddef>
#include <cstdio>
#include <cwchar>
#include <string_view>

namespace Testing
{
namespace
{
SharedRecord*& Record()
{
    static SharedRecord* record = nullptr;
    return record;
}

// As Windows checks it: planned or unplanned, not both, and a comment that fits.
bool IsValid(const SERVICE_CONTROL_STATUS_REASON_PARAMSW& parameters)
{
    constexpr DWORD c_kinds = SERVICE_STOP_REASON_FLAG_PLANNED | SERVICE_STOP_REASON_FLAG_UNPLANNED;
    const DWORD kind = parameters.dwReason & c_kinds;
    return kind != 0 && kind != c_kinds &&
           (parameters.pszComment == nullptr || std::wcslen(parameters.pszComment) < ServiceControl{}.comment.size());
}

// All zero when the service cannot be queried.
SERVICE_STATUS_PROCESS Query(SC_HANDLE service)
{
    SERVICE_STATUS_PROCESS status{};
    DWORD size = 0;
    QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof(status), &size);
    return status;
}

// Passes the control on without its reason. Returns 0 or an error number.
DWORD Control(SC_HANDLE service, DWORD control, DWORD infoLevel, SERVICE_CONTROL_STATUS_REASON_PARAMSW* parameters)
{
    if (infoLevel != SERVICE_CONTROL_STATUS_REASON_INFO || parameters == nullptr ||
        (control == SERVICE_CONTROL_STOP && !IsValid(*parameters)))
    {
        return ERROR_INVALID_PARAMETER;
    }
    SERVICE_STATUS status{};
    const DWORD error = ControlService(service, control, &status) ? ERROR_SUCCESS : GetLastError();
    // These come with the status too; Wine gives one only in case of success.
    if (error == ERROR_SUCCESS || error == ERROR_INVALID_SERVICE_CONTROL || error == ERROR_SERVICE_CANNOT_ACCEPT_CTRL ||
        error == ERROR_SERVICE_NOT_ACTIVE)
    {
        parameters->ServiceStatus = Query(service);
    }
    return error;
}

BOOL WINAPI StandInForControlServiceEx(SC_HANDLE service, DWORD control, DWORD infoLevel, void* information)
{
    auto* const parameters = static_cast<SERVICE_CONTROL_STATUS_REASON_PARAMSW*>(information);
    ServiceControl call{.sender = GetCurrentProcessId(),
                        .serviceProcess = Query(service).dwProcessId,
                        .control = control,
                        .infoLevel = infoLevel,
                        .reason = 0,
                        .comment = {},
                        .error = 0};
    if (parameters != nullptr)
    {
        call.reason = parameters->dwReason;
        const std::wstring_view comment = parameters->pszComment != nullptr ? parameters->pszComment : L"";
        comment.copy(call.comment.data(), call.comment.size() - 1);
    }
    call.error = Control(service, control, infoLevel, parameters);
    SharedRecord& record = *Record();
    const auto index = static_cast<std::size_t>(InterlockedIncrement(&record.controlCount) - 1);
    if (index < record.controls.size())
    {
        record.controls[index] = call;
    }
    SetLastError(call.error);
    return call.error == ERROR_SUCCESS;
}

BOOL WINAPI StandInForCreateProcess(const wchar_t* program, wchar_t* commandLine, SECURITY_ATTRIBUTES* process,
                                    SECURITY_ATTRIBUTES* thread, BOOL inherits, DWORD flags, void* environment,
                                    const wchar_t* folder, STARTUPINFOW* startup, PROCESS_INFORMATION* started)
{
    if (!CreateProcessW(program, commandLine, process, thread, inherits, flags | CREATE_SUSPENDED, environment, folder,
                        startup, started))
    {
        return FALSE;
    }
    const DWORD error = LoadIntoProcess(started->hProcess, Record()->library.data());
    if (error != ERROR_SUCCESS)
    {
        InterlockedExchange(&Record()->notFollowed, static_cast<LONG>(error));
    }
    if ((flags & CREATE_SUSPENDED) == 0)
    {
        ResumeThread(started->hThread);
    }
    return TRUE;
}

// Ends this process in the middle of the call that writes the last line: nothing runs afterwards, as when somebody else
// ends it just then.
BOOL WINAPI WriteAndEnd(HANDLE file, const void* buffer, DWORD size, DWORD* written, OVERLAPPED* overlapped)
{
    const BOOL ok = WriteFile(file, buffer, size, written, overlapped);
    const std::string_view text(static_cast<const char*>(buffer), size);
    if (ok && text.starts_with('|') && InterlockedDecrement(&Record()->linesLeft) == 0)
    {
        TerminateProcess(GetCurrentProcess(), c_killed);
    }
    return ok;
}

SharedRecord* OpenRecord()
{
    wchar_t name[MAX_PATH]{};
    const DWORD length = GetEnvironmentVariableW(c_recordVariable, name, MAX_PATH);
    if (length == 0 || length >= MAX_PATH)
    {
        return nullptr;
    }
    const HANDLE mapping = OpenFileMappingW(FILE_MAP_WRITE, FALSE, name);
    // The view keeps the memory, and stays as long as the process.
    void* const view = MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, sizeof(SharedRecord));
    CloseHandle(mapping);
    return static_cast<SharedRecord*>(view);
}

void WriteDown(const char* function, const char* rule)
{
    SharedRecord& record = *Record();
    const auto index = static_cast<std::size_t>(InterlockedIncrement(&record.violationCount) - 1);
    if (index < record.violations.size())
    {
        auto& violation = record.violations[index];
        std::snprintf(violation.data(), violation.size(), "%s: %s", function, rule);
    }
}

void StandIn(const char* name, void* function)
{
    if (void* const slot = FindImportSlot(name))
    {
        SetImportSlot(slot, function);
    }
}
} // namespace
} // namespace Testing

// The library's entry point.
BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*)
{
    using namespace Testing;
    if (reason != DLL_PROCESS_ATTACH)
    {
        return TRUE;
    }
    Record() = OpenRecord();
    if (Record() == nullptr)
    {
        return FALSE;
    }
    static const WholeRun run; // from before its first instruction
    JudgeCalls(WriteDown);
    if (IsWine())
    {
        StandIn("ControlServiceExW", reinterpret_cast<void*>(&StandInForControlServiceEx));
        StandIn("FindFirstFileW", reinterpret_cast<void*>(&StandInForFindFirstFile));
        StandIn("FindNextFileW", reinterpret_cast<void*>(&StandInForFindNextFile));
        StandIn("FindClose", reinterpret_cast<void*>(&StandInForFindClose));
    }
    if (Record()->linesLeft > 0)
    {
        StandIn("WriteFile", reinterpret_cast<void*>(&WriteAndEnd));
    }
    StandIn("CreateProcessW", reinterpret_cast<void*>(&StandInForCreateProcess));
    return TRUE;
}
