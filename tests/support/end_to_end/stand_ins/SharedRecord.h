// What the library that the tests load into a program shares with them.
#pragma once

#include <windows.h>

#include <array>

namespace Testing
{
// The environment variable that holds the name of the shared memory in which a SharedRecord lies.
inline constexpr const wchar_t* c_recordVariable = L"VELMORA_STAND_INS_RECORD";

// A control that was sent to a service together with a reason: a call of ControlServiceExW.
struct ServiceControl
{
    // The process that called, and that of the service as it was then; 0 when the service cannot be queried.
    DWORD sender;
    DWORD serviceProcess;
    DWORD control;
    DWORD infoLevel;
    DWORD reason;
    // Cut off at its end when it is longer.
    std::array<wchar_t, 128> comment;
    // The error number that the call ended with; 0 for success.
    DWORD error;
};

// The exit code of a process that was ended in the middle of its work.
inline constexpr DWORD c_killed = 0xDEAD;

struct SharedRecord
{
    // The library, for the processes that the program starts.
    std::array<wchar_t, 1024> library;
    // The number of calls; of those beyond the array there is only the number.
    LONG controlCount;
    std::array<ServiceControl, 64> controls;
    // Why a process that the program has started runs without the library, as an error number; 0 when each has it.
    LONG notFollowed;
    // How many lines of the log are still to be written: the process ends when this comes to 0, and does not when it
    // began so.
    LONG linesLeft;
    // The calls that Windows refuses, as "function: rule"; of those beyond the array there is only the number.
    LONG violationCount;
    std::array<std::array<char, 256>, 32> violations;
};
} // namespace Testing
