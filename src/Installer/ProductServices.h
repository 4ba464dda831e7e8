#pragma once

#include <windows.h>

// The services of the product.
namespace Installer
{

class Logger;

// Their names: those of their keys, not the ones that people see.
inline constexpr wchar_t c_authService[] = L"OrvaneAuthService";
inline constexpr wchar_t c_updaterService[] = L"VelmoraUpdaterService";
inline constexpr wchar_t c_spacedUpdaterService[] = L"Velmora Updater Service";

// Stops all services of the product, one after another; one that cannot be stopped does not keep the others from it.
// Returns S_OK, or E_UNEXPECTED after a standard exception, which is logged as an error and leaves out the rest; other
// exceptions pass.
HRESULT StopServices(Logger& logger);

} // namespace Installer
