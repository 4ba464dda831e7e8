// Loads a library into another process.
#pragma once

#include <windows.h>

namespace Testing
{
// Does it in a process that was created suspended, so before its first own instruction. Returns 0 or an error number.
DWORD LoadIntoProcess(HANDLE process, const wchar_t* library) noexcept;
} // namespace Testing
