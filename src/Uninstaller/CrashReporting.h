#pragma once

#include <string>

// Crash reporting of this program. A run without it, for whatever reason, goes on as any other.
namespace Uninstaller
{

// The first thing that the process does.
void StartCrashReporting();

// Sends what is left and ends it. Harmless when it was not started.
void CloseCrashReporting();

// Where reports wait until they are sent: a folder in the uninstaller's temporary folder.
std::wstring GetCrashReportFolder();

} // namespace Uninstaller
