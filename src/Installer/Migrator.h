#pragma once

#include <windows.h>

namespace Installer
{

class Logger;

// Has C++/WinRT find classes of Windows in the registration alone. Left to itself it would look for one that is not
// registered in libraries named like the class, first of all beside the program: in the temporary folder, where anybody
// can put them. Before the first use of a class.
void UseRegisteredClassesOnly() noexcept;

// Removes the packaged installation that earlier releases of the product left: takes back that Windows installs it for
// new users, stops the running client and removes the package for all users or, where that fails, for the current one;
// and deletes the folder of the authorization service. Needs COM on the calling thread and blocks it for as long as
// Windows takes. One attempt.
// Every failure is logged. Returns S_OK, or the error code of the last removal that did not complete, even if the
// package then could be removed for the current user alone; nothing else makes it fail but a lack of memory
// (E_OUTOFMEMORY).
HRESULT RemoveLegacyPackage(Logger& logger) noexcept;

} // namespace Installer
