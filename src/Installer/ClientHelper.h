#pragma once

#include <windows.h>

#include <wil/resource.h>

#include <set>

// The product's desktop client, which must exit before the product is removed.
namespace Installer
{

class Logger;

// Takes a snapshot of all processes. Throws wil::ResultException on failure.
wil::unique_tool_help_snapshot TakeProcessSnapshotOrThrow();

// The IDs of the running client processes, less this process. Throws wil::ResultException when no snapshot can be
// taken.
std::set<DWORD> FindRunningClientProcesses();

// Asks the running clients to close and waits up to ten seconds; terminates those that remain and waits up to ten
// seconds again. Returns whether no client is left. Standard exceptions are logged as an error and return false; other
// exceptions propagate.
bool StopRunningClient(Logger& logger);

} // namespace Installer
