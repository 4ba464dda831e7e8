#pragma once

#include <windows.h>

namespace Installer
{

class Logger;

// Makes C++/WinRT activate registered runtime classes only. By default it also loads a DLL named after the class's
// namespace from the program's folder, where anyone may have planted one. Call before the first activation.
void UseRegisteredClassesOnly() noexcept;

// Removes the product's legacy MSIX package: deprovisions it, stops the running client, removes the package for all
// users or, if that fails, for the current user, and deletes the authorization service's folder. One attempt; blocks
// until Windows has finished. COM must be initialised on the calling thread.
// Failures are logged. Returns S_OK, or the error code of the last removal that failed (also when a removal for the
// current user then succeeded), or E_OUTOFMEMORY.
HRESULT RemoveLegacyPackage(Logger& logger) noexcept;

} // namespace Installer
