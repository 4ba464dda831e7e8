#pragma once

#include <windows.h>

#include <string>

// Windows services, by service name. Failures are recorded by the result macros and not logged.
namespace Installer
{

// Whether the service can be opened with SERVICE_QUERY_STATUS. False on any failure, which is not recorded.
bool ServiceExists(const std::wstring& name);

// Stops a service and waits until it has stopped, and 1000 ms more for its process to exit. Terminates its process
// after ten seconds, and again ten seconds after each termination; waits without limit while the process cannot be
// opened. Returns S_OK when the service has stopped (at once if it was stopped already), E_ABORT after the fourth
// termination, otherwise the failed call's Win32 error as HRESULT, also for a service that does not exist.
HRESULT StopService(const std::wstring& name);

// Marks a stopped service for deletion and waits 5000 ms. Returns S_OK when it is deleted or cannot be opened (it
// counts as gone), otherwise the failed call's Win32 error as HRESULT.
HRESULT RemoveService(const std::wstring& name);

} // namespace Installer
