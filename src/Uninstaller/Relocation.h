#pragma once

#include "Installer/Logger.h"
#include "Uninstaller/Ending.h"

#include <wil/resource.h>

#include <string>

// A running executable cannot be deleted, nor its folder. Started from the installation folder, the uninstaller
// therefore copies itself to the temporary folder, starts the copy and exits.
namespace Uninstaller
{

// The copy's path, whether or not it exists.
std::wstring GetCopyPath();

// Copies the executable `ownPath` to the temporary folder, releases the single-instance mutex and starts the copy with
// `argument` (unless empty), without waiting for it. Returns the run's ending: CopyStarted, CopyFailed, CopyNotStarted
// or RelocationAborted.
Ending Relocate(Installer::Logger& logger, const std::wstring& ownPath, const std::wstring& argument,
                wil::unique_handle& mutex);

} // namespace Uninstaller
