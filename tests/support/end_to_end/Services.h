// Windows' service manager, as the tests use it.
#pragma once

#include "support/end_to_end/Owners.h"

#include <windows.h>

#include <memory>
#include <optional>
#include <string>
#include <type_traits>

namespace Testing
{
struct ServiceCloser
{
    void operator()(SC_HANDLE handle) const noexcept { CloseServiceHandle(handle); }
};
using UniqueService = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, ServiceCloser>;

// Connects to the service manager. Throws std::runtime_error when there is none.
UniqueService OpenServiceManager(DWORD access);

// Opens a service: empty when it cannot be opened, the reason then is GetLastError(). As long as anybody has it open, a
// service that is deleted stays: do not keep it.
UniqueService OpenServiceOf(const std::wstring& name, DWORD access);

// The state and the process of a service; nothing when there is no such service.
std::optional<SERVICE_STATUS_PROCESS> QueryService(const std::wstring& name);

// Tells Wine that a service has stopped whose process has ended without saying so. Windows notices that by itself, so
// there it does nothing.
void ReportStopped(const std::wstring& name);
} // namespace Testing
