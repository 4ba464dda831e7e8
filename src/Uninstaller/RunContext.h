#pragma once

#include "Installer/Logger.h"
#include "Installer/StatusWindow.h"

#include <windows.h>

namespace Uninstaller
{

// What a run reports through. It is handed to everything that has something to say.
struct RunContext
{
    Installer::Logger& logger;
    Installer::RunType runType = Installer::RunType::Silent;
    Installer::StatusWindow* window = nullptr; // null: a run without one, which shows no message boxes either
};

// The owner of the run's dialogs; null when there is no window to own them.
inline HWND DialogOwner(const RunContext& run)
{
    return run.window == nullptr ? nullptr : run.window->Window();
}

} // namespace Uninstaller
