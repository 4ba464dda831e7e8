#pragma once

#include <windows.h>

#include <wil/resource.h>

// The process's elevation, and the console user's token.
namespace Installer
{

// Whether the calling thread's effective token is elevated. Throws wil::ResultException when the query fails.
bool IsTokenElevated();

// The token of the explorer.exe in the active console session, with TOKEN_QUERY, TOKEN_DUPLICATE and TOKEN_IMPERSONATE;
// never empty. If there is no console session, takes the only session with an explorer.exe. If access to the process is
// denied (another user's), enables SeDebugPrivilege for that call.
// Throws std::runtime_error when there is no such explorer.exe, wil::ResultException with the Win32 error as HRESULT
// when the snapshot, the process or the token cannot be opened.
wil::unique_handle GetActiveConsoleExplorerToken();

} // namespace Installer
