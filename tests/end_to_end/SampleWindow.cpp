// A status window on its own, with texts that the product never shows.
//     Velmora.Sample.Window EVENT HEADLINE STATUS LOGO
// shows it until the event is set. Like the uninstaller in a long step, the first thread does nothing meanwhile.
#include "Installer/StatusWindow.h"

#include <windows.h>

#include <cstdlib>
#include <memory>

namespace
{
constexpr int c_argumentCount = 5;
constexpr int c_wrongUse = 64;
constexpr int c_noWindow = 1;

struct HandleCloser
{
    void operator()(HANDLE handle) const noexcept { CloseHandle(handle); }
};
} // namespace

int wmain(int count, wchar_t** arguments)
{
    const std::unique_ptr<void, HandleCloser> end(
        count == c_argumentCount ? OpenEventW(SYNCHRONIZE, FALSE, arguments[1]) : nullptr);
    if (!end)
    {
        return c_wrongUse;
    }
    SetProcessDPIAware();
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
