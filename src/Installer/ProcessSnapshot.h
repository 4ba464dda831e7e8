#pragma once

#include <windows.h>

#include <tlhelp32.h>

#include <wil/resource.h>

#include <functional>

// Toolhelp snapshots of the running processes.
namespace Installer
{

// Takes a snapshot of all processes. Empty on failure, with the last error set: the caller throws it, so that its own
// file and line are recorded.
wil::unique_tool_help_snapshot TakeProcessSnapshot() noexcept;

// Calls examine(process) for each process of the snapshot but the first, in order. Does nothing when the snapshot
// cannot be read. Exceptions of `examine` propagate.
void ForEachProcess(const wil::unique_tool_help_snapshot& snapshot,
                    const std::function<void(const PROCESSENTRY32W&)>& examine);

} // namespace Installer
