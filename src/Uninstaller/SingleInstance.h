#pragma once

#include "Uninstaller/Ending.h"

#include <wil/resource.h>

#include <optional>

// Only one installer or uninstaller of the product runs at a time.
namespace Uninstaller
{

// Creates the shared named mutex; keep `mutex` for the whole run. Returns AlreadyRunning when the mutex exists or
// cannot be created; if it exists, `mutex` is set all the same, and the caller releases it after EndRun.
std::optional<Ending> CheckSingleInstance(wil::unique_handle& mutex);

// Closes the mutex, if set, so that another installer or uninstaller can run. Throws wil::ResultException when
// CloseHandle fails.
void ReleaseSingleInstance(wil::unique_handle& mutex);

} // namespace Uninstaller
