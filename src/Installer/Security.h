#pragma once

#include <windows.h>

#include <wil/resource.h>

// Who this process runs as, and who sits at the machine.
namespace Installer
{

// Whether the effective token of the calling thread is elevated. Throws wil::ResultException when it cannot be asked.
bool IsTokenElevated();

// A token of the user whose desktop is on the console, taken from the Explorer that runs there: good to query, to
// duplicate and to impersonate with. When no session is on the console, the only session that has an Explorer counts.
// An Explorer that denies access, as another user's does, is opened with SeDebugPrivilege, enabled for that one call.
// The caller owns the token, which is never empty. Throws std::runtime_error when there is no such Explorer, and
// wil::ResultException with the Win32 error as HRESULT when Windows refuses the processes or the token.
wil::unique_handle GetActiveConsoleExplorerToken();

} // namespace Installer
