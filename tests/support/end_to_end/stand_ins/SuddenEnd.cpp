#include "support/end_to_end/stand_ins/SuddenEnd.h"

#include "support/common/ImportTableFake.h"

#include <windows.h>

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

BOOL WINAPI WriteAndEnd(HANDLE file, const void* buffer, DWORD size, DWORD* written, OVERLAPPED* overlapped)
{
    const BOOL ok = WriteFile(file, buffer, size, written, overlapped);
    const std::string_view text(static_cast<const char*>(buffer), size);
    if (ok && text.starts_with('|') && InterlockedDecrement(&Moment()->lines) == 0)
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
}
} // namespace Testing
