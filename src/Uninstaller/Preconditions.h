#pragma once

#include "Installer/Logger.h"
#include "Uninstaller/Ending.h"

#include <optional>
#include <string>

// The checks before anything is removed. Each returns the run's ending when it fails, otherwise nullopt.
namespace Uninstaller
{

// Windows 10, version 2004 (10.0.19041) or later.
std::optional<Ending> CheckWindowsVersion(Installer::Logger& logger);

// Local System or an elevated token. Throws wil::ResultException when a token query fails.
std::optional<Ending> CheckElevation(Installer::Logger& logger);

// The installation folder, examined once per run.
struct InstallFolder
{
    std::wstring path;        // ends in a backslash
    bool isProtected = false; // IsProtectedFolder: never deleted
};

// The uninstall entry's InstallLocation, or the default folder below Program Files. Logs which.
InstallFolder FindInstallFolder(Installer::Logger& logger);

} // namespace Uninstaller
