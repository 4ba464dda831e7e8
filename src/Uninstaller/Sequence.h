#pragma once

#include "Installer/Logger.h"
#include "Uninstaller/ExitCode.h"

#include <string>

namespace Uninstaller
{

// What one run knows about itself.
struct UninstallRun
{
    Installer::Logger& logger;
    std::wstring installFolder;      // ends in a backslash
    std::wstring ownPath;            // of the running executable
    bool removeUserSettings = false; // the user asked for it
};

// Removes the product, one step after another, and ends the run (finishProcess). A step that fails is logged and does
// not keep the later ones from being done. Returns EXIT_NO_ERROR when all of it is gone, otherwise
// EXIT_ERROR_PARTIAL_UNINSTALL.
ExitCode UninstallProduct(const UninstallRun& run);

} // namespace Uninstaller
