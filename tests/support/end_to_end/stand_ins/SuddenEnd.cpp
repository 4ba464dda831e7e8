#include "support/end_to_end/stand_ins/SuddenEnd.h"

#include "support/common/ImportTableFake.h"

#include <windows.h>

#include <winternl.h>

#include <string_view>

namespace Testing
{
namespace
{
SharedMoment*& Moment()
{
    static SharedMoment* moment = nullptr;
    return moment;
}

void End()
{
    InterlockedIncrement(&Moment()->ended);
    TerminateProcess(GetCurrentProcess(), Moment()->exitCode);
    // Whoever gets here has not ended.
    InterlockedDecrement(&Moment()->ended);
}

// Whether what is written is a line of the log, and the one that is waited for.
bool IsTheLine(std::string_view written)
{
    return written.starts_with('|') && written.find(Moment()->line.data()) != std::string_view::npos;
}

BOOL WINAPI WriteAndEnd(HANDLE file, const void* buffer, DWORD size, DWORD* written, OVERLAPPED* overlapped)
{
    const BOOL ok = WriteFile(file, buffer, size, written, overlapped);
    if (ok && IsTheLine({static_cast<const char*>(buffer), size}) && InterlockedDecrement(&Moment()->lines) == 0 &&
        Moment()->deletions == 0)
    {
        End();
    }
    return ok;
}

void CountDeletion()
{
    if (Moment()->lines <= 0 && InterlockedDecrement(&Moment()->deletions) == 0)
    {
        End();
    }
}

BOOL WINAPI DeleteFileAndEnd(const wchar_t* path)
{
    const BOOL ok = DeleteFileW(path);
    if (ok)
    {
        CountDeletion();
    }
    return ok;
}

// A deletion through a handle; directories are deleted so, too.
BOOL WINAPI DeleteAndEnd(HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, void* data, DWORD size)
{
    const BOOL ok = SetFileInformationByHandle(file, kind, data, size);
    if (ok)
    {
        CountDeletion();
    }
    return ok;
}

// A file that goes when it is closed, which the end of the process does, too.
NTSTATUS NTAPI OpenAndEnd(HANDLE* file, ACCESS_MASK access, OBJECT_ATTRIBUTES* attributes, IO_STATUS_BLOCK* status,
                          ULONG share, ULONG options)
{
    const NTSTATUS result = NtOpenFile(file, access, attributes, status, share, options);
    if (NT_SUCCESS(result) && (options & FILE_DELETE_ON_CLOSE) != 0)
    {
        CountDeletion();
    }
    return result;
}
} // namespace

void EndAt(SharedMoment& moment) noexcept
{
    Moment() = &moment;
    SetImportSlot(ImportSlot("WriteFile"), reinterpret_cast<void*>(&WriteAndEnd));
    SetImportSlot(ImportSlot("SetFileInformationByHandle"), reinterpret_cast<void*>(&DeleteAndEnd));
    // The stand-in for WIL deletes files with one of these, WIL itself with the other.
    SetImportSlot(ImportSlot("DeleteFileW"), reinterpret_cast<void*>(&DeleteFileAndEnd));
    if (void* const slot = FindImportSlot("NtOpenFile"))
    {
        SetImportSlot(slot, reinterpret_cast<void*>(&OpenAndEnd));
    }
}
} // namespace Testing
