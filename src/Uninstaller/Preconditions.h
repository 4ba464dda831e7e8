#pragma once

#include "Installer/Logger.h"
#include "Uninstaller/Ending.h"

#include <optional>
#include <string>

// What is settled before anything is removed. A check returns the reason to end the run, or nothing.
namespace Uninstaller
{

// Windows 10 version 2004 (10.0.19041) or later: anything older is too old.
std::optional<Ending> CheckWindowsVersion(Installer::Logger& logger);

// Local System or an elevated administrator: anybody else is not elevated. Throws wil::ResultException when the
// process's token cannot be asked.
std::optional<Ending> CheckElevation(Installer::Logger& logger);

// Where the product is installed, and whether that is a folder that is never deleted (IsProtectedFolder): decided once,
// the whole run goes by it.
struct InstallFolder
{
    std::wstring path; // ends in a backslash
    bool isProtected = false;
};

// The folder that the uninstall entry names, otherwise the default one below Program Files. Logs what was found.
InstallFolder FindInstallFolder(Installer::Logger& logger);

} // namespace Uninstaller
