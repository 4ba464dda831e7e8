// The client of the sample product: a program with the window of a notification icon, MODE EVENT on its command line.
#include "support/end_to_end/product/Product.h"
#include "support/end_to_end/product/Start.h"

#include <windows.h>

#include <string>

namespace Testing
{
namespace
{
struct Client
{
    ClientMode mode = ClientMode::Closes;
    UniqueHandle requests{};
};

Client& TheClient()
{
    static Client client;
    return client;
}

void BeAskedToClose()
{
    const Client& client = TheClient();
    ReleaseSemaphore(client.requests.get(), 1, nullptr);
    if (client.mode == ClientMode::Closes)
    {
        PostQuitMessage(static_cast<int>(c_endedByItself));
    }
}

LRESULT CALLBACK HandleMessage(HWND window, UINT message, WPARAM first, LPARAM second)
{
    if (message == WM_COMMAND && first == c_closeCommand && second == 0)
    {
        BeAskedToClose();
        return 0;
    }
    return DefWindowProcW(window, message, first, second);
}

bool MakeWindow()
{
    const std::wstring className = std::wstring(c_iconClass) + L"7f3a";
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = HandleMessage;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = className.c_str();
    return RegisterClassW(&windowClass) != 0 &&
           CreateWindowExW(0, className.c_str(), L"", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, windowClass.hInstance,
                           nullptr) != nullptr;
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
    client.requests.reset(
        OpenSemaphoreW(SEMAPHORE_MODIFY_STATE, FALSE, (arguments[1] + std::wstring(c_requestsSuffix)).c_str()));
    if ((client.mode != ClientMode::HasNoWindow && !MakeWindow()) ||
        (client.mode == ClientMode::CannotBeEnded && !ForbidToEnd()))
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
