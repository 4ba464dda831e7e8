#pragma once

#include "Installer/Logger.h"

#include <string>

// What is settled before anything is removed.
namespace Uninstaller
{

// Where the product is installed, ending in a backslash: the folder that the uninstall entry names, otherwise the
// default one below Program Files. Logs what was found.
std::wstring FindInstallFolder(Installer::Logger& logger);

} // namespace Uninstaller
