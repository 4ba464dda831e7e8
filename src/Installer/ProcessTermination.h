#pragma once

#include <windows.h>

#include <wil/resource.h>

// Terminating processes.
namespace Installer
{

class Logger;

// Opens a process with PROCESS_TERMINATE. Empty on failure, with the last error set.
wil::unique_process_handle OpenForTermination(DWORD id);

// Terminates a process with exit code 0, without waiting for its exit. FALSE on failure, with the last error set.
BOOL Terminate(const wil::unique_process_handle& process);

// Logs why a process could not be opened for termination. `capture` applies to errors other than E_ACCESSDENIED and
// E_INVALIDARG. Returns whether the process has presumably exited (E_INVALIDARG).
bool LogOpenFailure(Logger& logger, HRESULT result, bool capture);

} // namespace Installer
