#pragma once

#include "Uninstaller/Ending.h"

#include <wil/resource.h>

#include <optional>

// The product's installer and uninstaller run one at a time.
namespace Uninstaller
{

// Takes the mutex that they share and puts it into `mutex`, which is to be held as long as the run works on the
// machine. Returns the reason to end the run when another one holds it or it cannot be had; a handle that was given all
// the same is in `mutex`, and is to be released after the end.
std::optional<Ending> CheckSingleInstance(wil::unique_handle& mutex);

// Lets the next installer or uninstaller run; does nothing without a mutex. Throws wil::ResultException when the handle
// cannot be closed.
void ReleaseSingleInstance(wil::unique_handle& mutex);

} // namespace Uninstaller
