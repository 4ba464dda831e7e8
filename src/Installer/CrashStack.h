#pragma once

#include <windows.h>

namespace Installer
{

// Reserves stack on the calling thread for the crash handler: without it, a stack overflow ends the process with no
// report. The guarantee is per thread; each thread of the program calls this first.
inline void ReserveStackForCrashReport() noexcept
{
    ULONG bytes = 64 * 1024;
    SetThreadStackGuarantee(&bytes);
}

} // namespace Installer
