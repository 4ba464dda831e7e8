#include "Installer/StatusWindow.h"

#include "Installer/StatusWindowThread.h"

#include <shobjidl.h>

#include <cstdint>
#include <memory>
#include <string>

namespace Installer
{

namespace
{

constexpr int c_startPollIntervalMilliseconds = 50;
constexpr int c_startTimeoutMilliseconds = 1000;

void StartThread(const std::shared_ptr<StatusWindowData>& data)
{
    data->selfReference = data;
    data->thread.reset(CreateThread(nullptr, 0, RunStatusWindowThread, data.get(), 0, &data->threadId));
    if (!data->thread)
    {
        data->selfReference.reset();
    }
}

void WaitWhileStarting(const StatusWindowData& data)
{
    for (int waited = 0; waited <= c_startTimeoutMilliseconds; waited += c_startPollIntervalMilliseconds)
    {
        Sleep(c_startPollIntervalMilliseconds);
        if (data.state != StatusWindowState::Starting)
        {
            return;
        }
    }
}

// The window if it is running, otherwise null.
HWND FindRunningWindow(const StatusWindowData& data)
{
    return data.state == StatusWindowState::Running ? data.window.load() : nullptr;
}

// The progress of the whole run, in percent.
std::int32_t OverallProgress(int phase, int phaseCount, int percent)
{
    if (phaseCount == 0)
    {
        return 0;
    }
    const double start = (phase - 1.0) / phaseCount;
    const double end = static_cast<double>(phase) / phaseCount;
    return static_cast<std::int32_t>((percent / 100.0 * (end - start) + start) * 100.0);
}

} // namespace

StatusWindow::StatusWindow(HINSTANCE module, const std::wstring& className, const std::wstring& title,
                           const std::wstring& headline, int logoResourceId)
    : m_data(std::make_shared<StatusWindowData>())
{
    m_data->module = module;
    m_data->logoResourceId = logoResourceId;
    m_data->className = className;
    m_data->title = title;
    m_data->headline = headline;
    StartThread(m_data);
    if (m_data->thread)
    {
        WaitWhileStarting(*m_data);
    }
    // Atomic: the thread may leave Starting at this moment.
    StatusWindowState starting = StatusWindowState::Starting;
    m_data->state.compare_exchange_strong(starting, StatusWindowState::Failed);
}

StatusWindow::~StatusWindow()
{
    if (HWND running = FindRunningWindow(*m_data); running != nullptr)
    {
        SendMessageW(running, WM_CLOSE, 0, 0);
        m_data->accessibilityRoot.reset();
    }
    m_data->thread.reset();
    if (HWND window = m_data->window; window != nullptr)
    {
        DestroyWindow(window); // fails: it is destroyed already, or belongs to its thread
    }
}

StatusWindowState StatusWindow::State() const
{
    return m_data->state;
}

HWND StatusWindow::Window() const
{
    // The user can close the window, and a dialog with a destroyed owner fails.
    HWND window = FindRunningWindow(*m_data);
    return IsWindow(window) ? window : nullptr;
}

void StatusWindow::SetStatusText(const std::wstring& text)
{
    if (HWND window = FindRunningWindow(*m_data); window != nullptr)
    {
        SendMessageW(window, c_setStatusText, 0, reinterpret_cast<LPARAM>(text.c_str()));
    }
}

void StatusWindow::SetPhase(int phase, int, int percent)
{
    m_data->phase = phase;
    m_data->phaseCount = c_phaseCount;
    SetProgress(percent);
}

void StatusWindow::SetProgress(int percent)
{
    HWND window = FindRunningWindow(*m_data);
    if (window == nullptr)
    {
        return;
    }
    const std::int32_t progress = OverallProgress(m_data->phase, m_data->phaseCount, percent);
    wil::com_ptr_nothrow<ITaskbarList3> taskbar;
    CoCreateInstance(CLSID_TaskbarList, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(taskbar.put()));
    if (taskbar)
    {
        taskbar->SetProgressValue(window, static_cast<ULONGLONG>(progress), 100);
    }
    SendMessageW(window, c_setProgress, 0, progress);
}

void StatusWindow::ShowError(const std::wstring& caption, const std::wstring& text) const
{
    ShowMessage(caption, text, MB_ICONERROR);
}

void StatusWindow::ShowWarning(const std::wstring& caption, const std::wstring& text) const
{
    ShowMessage(caption, text, MB_ICONWARNING);
}

void StatusWindow::ShowInfo(const std::wstring& caption, const std::wstring& text) const
{
    ShowMessage(caption, text, MB_ICONINFORMATION);
}

void StatusWindow::ShowMessage(const std::wstring& caption, const std::wstring& text, UINT icon) const
{
    HWND owner = Window();
    SetForegroundWindow(owner);
    MessageBoxW(owner, text.c_str(), caption.c_str(), icon);
}

} // namespace Installer
