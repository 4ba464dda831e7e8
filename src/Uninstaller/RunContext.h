#pragma once

#include "Installer/Logger.h"
#include "Installer/RunType.h"
#include "Installer/StatusWindow.h"

#include <windows.h>

namespace Uninstaller
{

// What a run reports through.
struct RunContext
{
    Installer::Logger& logger;
    Installer::RunType runType = Installer::RunType::Silent;
    Installer::StatusWindow* window = nullptr; // null in runs without a window; use WithWindow
};

// Calls action(window) in runs with a window. Runs without one show no message boxes either.
template <class Action>
void WithWindow(const RunContext& run, Action action)
{
    if (run.window != nullptr)
    {
        action(*run.window);
    }
}

// The owner of the run's dialogs; null without a window.
inline HWND GetDialogOwner(const RunContext& run)
{
    HWND owner = nullptr;
    WithWindow(run, [&](const Installer::StatusWindow& window) { owner = window.Window(); });
    return owner;
}

} // namespace Uninstaller
