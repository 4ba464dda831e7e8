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

// The status window's thread.
namespace Installer
{

// Window messages, sent by the driver thread.
inline constexpr UINT c_setStatusText = WM_USER + 1; // lParam: the text (const wchar_t*)
inline constexpr UINT c_setProgress = WM_USER + 2;   // lParam: 0 to 100

// What the driver thread and the window's thread share of one status window.
//
// Lifetime. Two references own it, because either thread may outlive the other's interest in the window:
// - StatusWindow::m_data, from the constructor to the destructor;
// - selfReference, on behalf of the window's thread, from before CreateThread. RunStatusWindowThread moves it into a
//   local variable. If the window cannot be created, it is released when the thread ends. Otherwise it is stored here
//   again before the state becomes Running, and WM_NCDESTROY releases it: the window's GWLP_USERDATA points here.
// ~StatusWindow sends WM_CLOSE, so the window's thread runs WM_DESTROY (disconnects UI Automation clients) and
// WM_NCDESTROY (frees the logo, releases selfReference) before SendMessageW returns. Then it releases the accessibility
// root, closes the thread's handle and releases m_data. The thread itself stays in its message loop until the process
// exits. A window that is created after ~StatusWindow stays until then too.
struct StatusWindowData
{
    // Set before the thread starts.
    HINSTANCE module = nullptr;
    int logoResourceId = 0;
    std::wstring className;
    std::wstring title;
    std::wstring headline;

    // Written by the window's thread, `window` before `state` becomes Running; both threads write `state`.
    std::atomic<HWND> window = nullptr;
    std::atomic<StatusWindowState> state = StatusWindowState::Starting;

    // Used by the driver thread only.
    int phase = 0; // counted from 1
    int phaseCount = 0;
    wil::unique_handle thread;
    DWORD threadId = 0;

    // Used by the window's thread only, while the window exists.
    wil::com_ptr_nothrow<AccessibleRoot> accessibilityRoot;
    std::optional<Gdiplus::Bitmap> logo;

    // Owned by the window's thread; see above.
    std::shared_ptr<StatusWindowData> selfReference;
};

// The thread procedure. `argument` is a StatusWindowData with its selfReference set. Returns 1 when the window cannot
// be created, otherwise 0 when the message loop ends.
DWORD WINAPI RunStatusWindowThread(void* argument);

} // namespace Installer
