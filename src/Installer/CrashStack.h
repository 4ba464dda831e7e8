#pragma once

#include <windows.h>

namespace Installer
{

// Lets the calling thread keep as much of its stack as crash reporting needs when the stack overflows: without it, the
// process is gone without a report. Windows knows this for each thread only, so every thread of the program calls it
// first.
inline void ReserveStackForCrashReport() noexcept
{
    ULONG bytes = 64 * 1024;
    SetThreadStackGuarantee(&bytes);
}

} // namespace Installer
