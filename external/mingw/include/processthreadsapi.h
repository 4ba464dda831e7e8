#pragma once

#include_next <processthreadsapi.h>

// In kernel32 since Windows 10 version 1607; the import library has it, the header does not.
#ifdef __cplusplus
extern "C"
#endif
    WINBASEAPI HRESULT WINAPI
    SetThreadDescription(HANDLE thread, PCWSTR description);
