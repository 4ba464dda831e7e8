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

// Of how many phases a run consists.
inline constexpr int c_phaseCount = 10;

// The small dark window that shows what the program is doing. It lives on a thread of its own, so it stays alive while
// the calling thread blocks. What is shown first is "Getting things ready..." and an empty bar.
//
// A window that cannot be shown stops nothing: unless State() is Running, the operations do nothing, and the message
// boxes have no owner. Used from one thread only.
class StatusWindow
{
public:
    // Starts the window's thread and waits for it, for about a second at most. State() tells how that ended, and
    // changes once more when the window comes later. The logo is the "PNG" resource of that number; none is fine. The
    // headline may have two lines.
    StatusWindow(HINSTANCE module, const std::wstring& className, const std::wstring& title,
                 const std::wstring& headline, int logoResourceId);

    StatusWindow(const StatusWindow&) = delete;
    StatusWindow& operator=(const StatusWindow&) = delete;

    // Closes the window. Its thread ends with the process.
    ~StatusWindow();

    StatusWindowState State() const;

    // The window, as the owner of dialogs; null while there is none.
    HWND Window() const;

    // Replaces the line below the headline.
    void SetStatusText(const std::wstring& text);

    // Goes to one of the run's phases, which are counted from 1, and to `percent` of it. Their number is ignored: it is
    // always c_phaseCount.
    void SetPhase(int phase, int ignored, int percent);

    // Moves the bar, and the one on the taskbar's button, to `percent` (0 to 100) of the phase.
    void SetProgress(int percent);

    // Show a message box on top of the window, and wait until it is closed.
    void ShowError(const std::wstring& caption, const std::wstring& text) const;
    void ShowWarning(const std::wstring& caption, const std::wstring& text) const;
    void ShowInfo(const std::wstring& caption, const std::wstring& text) const;

private:
    void ShowMessage(const std::wstring& caption, const std::wstring& text, UINT icon) const;

    std::shared_ptr<StatusWindowData> m_data;
};

} // namespace Installer
