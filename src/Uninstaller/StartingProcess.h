#pragma once

#include <windows.h>

#include <wil/resource.h>

#include <optional>
#include <string>

// The process that went on as this one: it copied the program to the temporary folder, started the copy, and ends. It
// still runs from the installation folder while it closes its crash reporting.
namespace Uninstaller
{

struct StartingProcess
{
    DWORD id = 0;
    wil::unique_process_handle handle; // while it is held, nobody else gets the id
};

// Waits until the process that started this one as its copy has ended, five seconds at most. Returns it when it still
// runs then; nothing when it has ended, when this program is no copy (`ownPath` tells), when a program outside
// `installFolder` started it, or when that cannot be found out.
std::optional<StartingProcess> WaitForStartingProcess(const std::wstring& ownPath,
                                                      const std::wstring& installFolder) noexcept;

} // namespace Uninstaller
