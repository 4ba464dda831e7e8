#pragma once

#include <windows.h>

// The product's Windows services.
namespace Installer
{

class Logger;

// Their service names (not their display names).
inline constexpr wchar_t c_authService[] = L"OrvaneAuthService";
inline constexpr wchar_t c_updaterService[] = L"VelmoraUpdaterService";
inline constexpr wchar_t c_spacedUpdaterService[] = L"Velmora Updater Service";

// Stops the product's services in order. Returns S_OK even if a service cannot be stopped; E_UNEXPECTED after a
// standard exception, which is logged as an error and skips the rest. Other exceptions propagate.
HRESULT StopServices(Logger& logger);

} // namespace Installer
