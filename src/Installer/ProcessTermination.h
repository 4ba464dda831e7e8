#pragma once

#include <windows.h>

#include <wil/resource.h>

// How a process is ended that does not end by itself.
namespace Installer
{

class Logger;

// Opens a process to terminate it. Empty, with the last error set, when it cannot be opened.
wil::unique_process_handle OpenToTerminate(DWORD id);

// Terminates a process, which has exit code 0 then. Does not wait for its end. FALSE with the last error set.
BOOL Terminate(const wil::unique_process_handle& process);

// Logs why a process could not be opened to be terminated; `capture` is for a failure of an unknown kind. Returns
// whether the process has probably ended already.
bool LogFailureToOpen(Logger& logger, HRESULT result, bool capture);

} // namespace Installer
