#pragma once

#include "Installer/Accessibility.h"
#include "Installer/GdiPlus.h"
#include "Installer/StatusWindow.h"

#include <windows.h>

#include <wil/com.h>
#include <wil/resource.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

// The status window's own thread.
namespace Installer
{

// Sent to the window; the answer comes when the window has taken the value.
inline constexpr UINT c_setStatusText = WM_USER + 1; // the last parameter: the text (const wchar_t*)
inline constexpr UINT c_setProgress = WM_USER + 2;   // the last parameter: 0 to 100

// One status window, as both threads know it. The thread that starts it and the one that runs it each hold a reference:
// the second may be so late that the first has given up the window.
struct StatusWindowData
{
    // Set before the thread starts.
    HINSTANCE module = nullptr;
    int logoResourceId = 0;
    std::wstring className;
    std::wstring title;
    std::wstring headline;

    // Set by the window's thread, the window before the state becomes Running; the state by both.
    std::atomic<HWND> window = nullptr;
    std::atomic<StatusWindowState> state = StatusWindowState::Starting;

    // Of the starting thread alone.
    int phase = 0; // counted from 1
    int phaseCount = 0;
    wil::unique_handle thread;
    DWORD threadId = 0;

    // Of the window's thread alone, until the window is gone.
    wil::com_ptr_nothrow<AccessibleRoot> accessibilityRoot;
    std::optional<Gdiplus::Bitmap> logo;

    // The reference of the window's thread: given up when the window is gone or never was.
    std::shared_ptr<StatusWindowData> heldByWindowThread;
};

// The procedure of the window's thread. Takes a StatusWindowData that holds a reference for it. Returns 1 when the
// window could not be made, else stays in its message loop and returns 0 at its end.
DWORD WINAPI RunStatusWindowThread(void* argument);

} // namespace Installer
