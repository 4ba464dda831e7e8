#pragma once

#include <windows.h>

#include <tlhelp32.h>

#include <wil/resource.h>

#include <functional>

// The processes of the machine, as they were at one moment.
namespace Installer
{

// Takes a snapshot of all processes. It is empty when Windows gives none, and the last error then says why: the caller
// throws it, so that the failure is recorded under the caller's name.
wil::unique_tool_help_snapshot TakeProcessSnapshot() noexcept;

// Calls examine(process) for every process of the snapshot but the first, in the snapshot's order. Does nothing when
// the snapshot cannot be read. Passes on what `examine` throws.
void ForEachProcess(const wil::unique_tool_help_snapshot& snapshot,
                    const std::function<void(const PROCESSENTRY32W&)>& examine);

} // namespace Installer
