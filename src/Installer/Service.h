#pragma once

#include <windows.h>

#include <string>

// The services of Windows, by the name of their key in the service manager. The failures of these functions are
// recorded by the result macros; none of them writes to the log of the run.
namespace Installer
{

// Whether the service can be opened to ask for its status. A failure of any kind reads as "no", and is not recorded.
bool ServiceExists(const std::wstring& name);

// Stops a service and waits until it has stopped, plus a second in which its process can end. Its process is killed
// when it has not stopped after ten seconds, and again ten seconds after every kill. There is no limit in time as long
// as the process cannot be opened. Returns S_OK when the service is stopped or was so already (then at once), E_ABORT
// when it has been killed four times, otherwise the failure of the Win32 call as HRESULT; a service that does not exist
// is a failure.
HRESULT StopService(const std::wstring& name);

// Deletes a service, which must have been stopped before, and gives the service manager five seconds to do so. Returns
// S_OK when it is deleted or cannot be opened (it counts as gone then), otherwise the failure of the Win32 call as
// HRESULT.
HRESULT RemoveService(const std::wstring& name);

} // namespace Installer
