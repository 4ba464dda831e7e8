#pragma once

#include <windows.h>

#include <wil/resource.h>

#include <set>

// The product's own client, which has to end before the product can be removed.
namespace Installer
{

class Logger;

// Takes a snapshot of all processes. Throws wil::ResultException, recorded under the name of this file, when Windows
// gives none.
wil::unique_tool_help_snapshot RequireProcessSnapshot();

// The ids of the product's clients that are running; this process is never among them. Throws wil::ResultException
// when the processes cannot be listed.
std::set<DWORD> FindRunningClientProcesses();

// Asks the running clients to close, gives them ten seconds, terminates those that are left, and gives these ten
// seconds too. Returns whether none is running any more: false also after a standard exception, which is logged as an
// error. Other exceptions pass.
bool StopRunningClient(Logger& logger);

} // namespace Installer
