#pragma once

#include "Installer/Logger.h"

namespace Uninstaller
{

// What a run reports through. It is handed to everything that has something to say.
struct RunContext
{
    Installer::Logger& logger;
    Installer::RunType runType;
};

} // namespace Uninstaller
