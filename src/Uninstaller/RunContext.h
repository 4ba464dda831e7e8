#pragma once

#include "Installer/Logger.h"
#include "Installer/StatusWindow.h"

#include <windows.h>

#include <string>

namespace Uninstaller
{

// What a run reports through. It is handed to everything that has something to say.
struct RunContext
{
    Installer::Logger& logger;
    Installer::RunType runType = Installer::RunType::Silent;
    Installer::StatusWindow* window = nullptr; // null: a run without one, which shows no message boxes either
};

// The caption of the failures that have none of their own.
inline constexpr wchar_t c_failureCaption[] = L"Velmora Uninstaller Failed";

// Shows an error in a message box and waits until it is closed; does nothing in a run without a window.
inline void ShowError(const RunContext& run, const std::wstring& text, const wchar_t* caption = c_failureCaption)
{
    if (run.window != nullptr)
    {
        run.window->ShowError(caption, text);
    }
}

// The owner of the run's dialogs; null when there is no window to own them.
inline HWND DialogOwner(const RunContext& run)
{
    return run.window == nullptr ? nullptr : run.window->Window();
}

} // namespace Uninstaller
