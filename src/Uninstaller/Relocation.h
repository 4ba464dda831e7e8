#pragma once

#include "Installer/Logger.h"
#include "Uninstaller/Ending.h"

#include <wil/resource.h>

#include <string>

// A running program keeps its file and with it the folder that it lies in. An uninstaller that was started from the
// installation folder therefore goes on as a copy of itself in the temporary folder.
namespace Uninstaller
{

// Where the copy lies, if there is one.
std::wstring GetCopyPath();

// Copies the program at `ownPath` to the temporary folder, hands the mutex over and starts the copy with the same
// argument (empty for none); it is not waited for. Returns how the run ends: with the copy started, or with what kept
// it from being made or started.
Ending Relocate(Installer::Logger& logger, const std::wstring& ownPath, const std::wstring& argument,
                wil::unique_handle& mutex);

} // namespace Uninstaller
