// A status window on its own, with texts that the product never shows.
//     Velmora.Sample.Window EVENT HEADLINE STATUS LOGO
// shows it until the event is set. Like the uninstaller in a long step, the first thread does nothing meanwhile.
//     Velmora.Sample.Window EVENT
// shows a window with nothing in it but one colour: the least that a window costs.
#include "Installer/StatusWindow.h"

#include <windows.h>

#include <cstdlib>
#include <memory>

namespace
{
constexpr int c_argumentCount = 5;
constexpr int c_argumentCountOfEmptyWindow = 2;
constexpr COLORREF c_emptyColour = RGB(0, 128, 0);
constexpr int c_wrongUse = 64;
constexpr int c_noWindow = 1;

struct HandleCloser
{
    void operator()(HANDLE handle) const noexcept { CloseHandle(handle); }
};

int ShowEmptyWindow(HANDLE end)
{
    WNDCLASSW description{};
    description.lpfnWndProc = DefWindowProcW;
    description.lpszClassName = L"VELMORA_SAMPLE_EMPTY";
    description.hbrBackground = CreateSolidBrush(c_emptyColour);
    RegisterClassW(&description);
    HWND window = CreateWindowExW(WS_EX_TOPMOST, description.lpszClassName, L"", WS_POPUP | WS_VISIBLE, 390, 342, 500,
                                  340, nullptr, nullptr, nullptr, nullptr);
    while (window != nullptr && MsgWaitForMultipleObjects(1, &end, FALSE, INFINITE, QS_ALLINPUT) == WAIT_OBJECT_0 + 1)
    {
        MSG message{};
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        {
            DispatchMessageW(&message);
        }
    }
    return window == nullptr ? c_noWindow : 0;
}
} // namespace

int wmain(int count, wchar_t** arguments)
{
    const std::unique_ptr<void, HandleCloser> end(count == c_argumentCount || count == c_argumentCountOfEmptyWindow
                                                      ? OpenEventW(SYNCHRONIZE, FALSE, arguments[1])
                                                      : nullptr);
    if (!end)
    {
        return c_wrongUse;
    }
    SetProcessDPIAware();
    if (count == c_argumentCountOfEmptyWindow)
    {
        return ShowEmptyWindow(end.get());
    }
    Installer::StatusWindow window(GetModuleHandleW(nullptr), L"VELMORA_UNINSTALLER", L"Velmora Uninstaller",
                                   arguments[2], static_cast<int>(std::wcstol(arguments[4], nullptr, 10)));
    if (window.State() != Installer::StatusWindowState::Running)
    {
        return c_noWindow;
    }
    window.SetStatusText(arguments[3]);
    WaitForSingleObject(end.get(), INFINITE);
    return 0;
}
