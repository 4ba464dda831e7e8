// The client of the sample product: a program with the window of a notification icon, MODE EVENT on its command line.
#include "support/end_to_end/product/Product.h"
#include "support/end_to_end/product/Start.h"

#include <windows.h>

#include <array>
#include <string>

namespace Testing
{
namespace
{
struct Client
{
    ClientMode mode = ClientMode::Closes;
    UniqueHandle requests{};
    // How many windows have yet to be asked before it closes.
    std::size_t windowsToAsk = 1;
};

Client& TheClient()
{
    static Client client;
    return client;
}

void BeAskedToClose(HWND window)
{
    Client& client = TheClient();
    ReleaseSemaphore(client.requests.get(), 1, nullptr);
    // Each window counts once.
    if (client.mode == ClientMode::Ignores || client.mode == ClientMode::CannotBeEnded ||
        GetPropW(window, L"asked") != nullptr)
    {
        return;
    }
    SetPropW(window, L"asked", window);
    if (--client.windowsToAsk == 0)
    {
        PostQuitMessage(static_cast<int>(c_endedByItself));
    }
}

LRESULT CALLBACK HandleMessage(HWND window, UINT message, WPARAM first, LPARAM second)
{
    if (message == WM_COMMAND && first == c_closeCommand && second == 0)
    {
        BeAskedToClose(window);
        return 0;
    }
    return DefWindowProcW(window, message, first, second);
}

bool MakeWindow(const std::wstring& className)
{
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = HandleMessage;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = className.c_str();
    return RegisterClassW(&windowClass) != 0 &&
           CreateWindowExW(0, className.c_str(), L"", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, windowClass.hInstance,
                           nullptr) != nullptr;
}

bool MakeWindows(ClientMode mode)
{
    const std::wstring icon(c_iconClass);
    switch (mode)
    {
    case ClientMode::HasNoWindow:
        return true;
    case ClientMode::HasOtherWindows:
        // Too short, in other letter case, with something before it, and nothing alike.
        return MakeWindow(icon.substr(0, icon.size() - 1)) && MakeWindow(L"velmora_notifyicon_handler_case") &&
               MakeWindow(L"Old" + icon + L"8b11") && MakeWindow(L"Velmora_Main");
    case ClientMode::HasTwoWindows:
        return MakeWindow(icon + L"first") && MakeWindow(icon + L"second");
    default:
        return MakeWindow(icon + L"7f3a");
    }
}
} // namespace
} // namespace Testing

// The program's entry point.
int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int)
{
    using namespace Testing;
    const auto arguments = Arguments();
    if (arguments.size() != 2)
    {
        return static_cast<int>(c_wronglyStarted);
    }
    Client& client = TheClient();
    client.mode = ModeFrom<ClientMode>(arguments[0]);
    client.windowsToAsk = client.mode == ClientMode::HasTwoWindows ? 2 : 1;
    client.requests.reset(
        OpenSemaphoreW(SEMAPHORE_MODIFY_STATE, FALSE, (arguments[1] + std::wstring(c_requestsSuffix)).c_str()));
    if (!MakeWindows(client.mode) || (client.mode == ClientMode::CannotBeEnded && !ForbidToEnd()))
    {
        return static_cast<int>(c_wronglyStarted);
    }
    TellThatItRuns(arguments[1]);
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0)
    {
        DispatchMessageW(&message);
    }
    return static_cast<int>(message.wParam);
}
