#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>

namespace Installer
{

enum class StatusWindowState : std::int32_t
{
    Starting = 0,
    Running = 1,
    Failed = 2,
};

struct StatusWindowData;

// The number of phases of a run.
inline constexpr int c_phaseCount = 10;

// The dark progress window. It has its own thread, so it keeps painting while the calling thread blocks. It starts with
// "Getting things ready..." and an empty bar.
//
// Unless State() is Running, the operations do nothing, and message boxes have no owner. Not thread-safe. Lifetime: see
// StatusWindowData.
class StatusWindow
{
public:
    // Starts the window's thread and waits up to about a second for the window. Then State() is Running or Failed; it
    // still becomes Running if the window is created later. `logoResourceId` is a "PNG" resource of `module`; it may be
    // missing. `headline` may have two lines.
    StatusWindow(HINSTANCE module, const std::wstring& className, const std::wstring& title,
                 const std::wstring& headline, int logoResourceId);

    StatusWindow(const StatusWindow&) = delete;
    StatusWindow& operator=(const StatusWindow&) = delete;

    // Closes the window. Its thread runs until the process exits.
    ~StatusWindow();

    StatusWindowState State() const;

    // The window, as an owner of dialogs; null unless it is running and not closed.
    HWND Window() const;

    // Sets the status line, below the headline.
    void SetStatusText(const std::wstring& text);

    // Goes to `percent` (0 to 100) of a phase, from 1 to c_phaseCount. The second parameter is ignored.
    void SetPhase(int phase, int ignored, int percent);

    // Moves the progress bar, and the taskbar button's, to `percent` (0 to 100) of the current phase.
    void SetProgress(int percent);

    // Show a modal message box owned by the window.
    void ShowError(const std::wstring& caption, const std::wstring& text) const;
    void ShowWarning(const std::wstring& caption, const std::wstring& text) const;
    void ShowInfo(const std::wstring& caption, const std::wstring& text) const;

private:
    void ShowMessage(const std::wstring& caption, const std::wstring& text, UINT icon) const;

    std::shared_ptr<StatusWindowData> m_data;
};

} // namespace Installer
