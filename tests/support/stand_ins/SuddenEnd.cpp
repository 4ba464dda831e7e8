#include "support/stand_ins/SuddenEnd.h"

#include "support/ImportTableFake.h"

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

BOOL WINAPI DeleteAndEnd(const wchar_t* path)
{
    const BOOL ok = DeleteFileW(path);
    if (ok && Moment()->lines <= 0 && InterlockedDecrement(&Moment()->deletions) == 0)
    {
        End();
    }
    return ok;
}
} // namespace

void EndAt(SharedMoment& moment) noexcept
{
    Moment() = &moment;
    SetImportSlot(ImportSlot("WriteFile"), reinterpret_cast<void*>(&WriteAndEnd));
    SetImportSlot(ImportSlot("DeleteFileW"), reinterpret_cast<void*>(&DeleteAndEnd));
}
} // namespace Testing
