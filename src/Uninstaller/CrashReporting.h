#pragma once

#include "Installer/UninstallerTempFolder.h"

#include <string>

// Crash reporting. The run goes on without it if it cannot be started.
namespace Uninstaller
{

// Called before anything else in the process.
void StartCrashReporting();

// Flushes pending reports and shuts down. Does nothing when crash reporting was not started.
void CloseCrashReporting();

// The database of pending reports, in the uninstaller's temporary folder, without a trailing backslash.
std::wstring GetCrashReportFolder(const Installer::UninstallerTempFolder& folder);

} // namespace Uninstaller
