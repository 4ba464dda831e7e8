#pragma once

#include <windows.h>

#include <wil/resource.h>

#include <optional>
#include <string>

// The process that relocated itself and started this copy. It runs from the installation folder until it has shut down
// its crash reporting.
namespace Uninstaller
{

struct ParentProcess
{
    DWORD id = 0;
    wil::unique_process_handle handle; // keeps Windows from reusing the ID
};

// If this process is a relocated copy (`ownPath` is its path), waits up to 5000 ms for its parent's exit. Returns the
// parent if it still runs; nullopt when it has exited, when this is no relocated copy, when the parent's executable is
// not in `installFolder`, or on failure.
std::optional<ParentProcess> WaitForParentProcess(const std::wstring& ownPath,
                                                  const std::wstring& installFolder) noexcept;

} // namespace Uninstaller
