// A service of the sample product: Velmora.Sample.Service.exe MODE EVENT, started by Windows' service manager.
#include "support/end_to_end/product/Product.h"
#include "support/end_to_end/product/Start.h"

#include <windows.h>

namespace Testing
{
namespace
{
struct Service
{
    ServiceMode mode = ServiceMode::Obeys;
    const wchar_t* event = nullptr;
    SERVICE_STATUS_HANDLE handle = nullptr;
    UniqueHandle askedToStop{};

    void Report(DWORD state) const
    {
        SERVICE_STATUS status{};
        status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
        status.dwCurrentState = state;
        if (state == SERVICE_RUNNING)
        {
            status.dwControlsAccepted = SERVICE_ACCEPT_STOP;
        }
        SetServiceStatus(handle, &status);
    }
};

// The process has one service: Windows calls its entry point without any context.
Service& TheService()
{
    static Service service;
    return service;
}

DWORD WINAPI HandleControl(DWORD control, DWORD, void*, void*)
{
    const Service& service = TheService();
    if (control == SERVICE_CONTROL_INTERROGATE)
    {
        return NO_ERROR;
    }
    if (control != SERVICE_CONTROL_STOP)
    {
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
    if (service.mode == ServiceMode::TakesThreeSeconds)
    {
        service.Report(SERVICE_STOP_PENDING);
    }
    SetEvent(service.askedToStop.get());
    return NO_ERROR;
}

void WINAPI RunService(DWORD, wchar_t** arguments)
{
    Service& service = TheService();
    service.handle = RegisterServiceCtrlHandlerExW(arguments[0], HandleControl, nullptr);
    service.Report(SERVICE_RUNNING);
    TellThatItRuns(service.event);
    WaitForSingleObject(service.askedToStop.get(), INFINITE);
    if (service.mode != ServiceMode::Obeys)
    {
        Sleep(service.mode == ServiceMode::TakesThreeSeconds ? 3'000 : INFINITE);
    }
    service.Report(SERVICE_STOPPED);
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
    Service& service = TheService();
    service.askedToStop.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    service.mode = ModeFrom<ServiceMode>(arguments[0]);
    service.event = arguments[1];
    // A service that has its process for itself is started whatever its name is here.
    wchar_t name[] = L"";
    const SERVICE_TABLE_ENTRYW services[]{{name, RunService}, {nullptr, nullptr}};
    return static_cast<int>(StartServiceCtrlDispatcherW(services) ? c_endedByItself : c_wronglyStarted);
}
