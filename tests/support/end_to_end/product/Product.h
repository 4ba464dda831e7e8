// What the sample product's running parts and the tests that start them agree on.
#pragma once

#include <windows.h>

#include <array>
#include <cstddef>
#include <string_view>

namespace Testing
{
// The names under which the product's services can be installed. The last one is a name of its own, not how the one
// before it is shown.
inline constexpr std::wstring_view c_authService = L"OrvaneAuthService";
inline constexpr std::wstring_view c_updaterService = L"VelmoraUpdaterService";
inline constexpr std::wstring_view c_spacedUpdaterService = L"Velmora Updater Service";
inline constexpr std::array c_productServices{c_authService, c_updaterService, c_spacedUpdaterService};

// What a service does when it is asked to stop.
enum class ServiceMode
{
    // Stops at once.
    Obeys,
    // Is pending for three seconds, then stops.
    TakesThreeSeconds,
    // Goes on running as if nothing had been asked.
    Ignores
};

// What a client does when its notification icon's window is asked to close it.
enum class ClientMode
{
    // Ends at once.
    Closes,
    // Goes on.
    Ignores,
    // There is no window that could be asked.
    HasNoWindow,
    // Goes on, and nobody else is allowed to end it, as if it were another user's.
    CannotBeEnded
};

// The command line of each program is its mode, written as a number, and the name of its event.
//
// The event is set when the program runs as its mode says. A client's semaphore has the same name with this behind it;
// it counts the requests to close that have reached the client's windows.
inline constexpr std::wstring_view c_requestsSuffix = L".Requests";
inline constexpr LONG c_mostRequests = 1000;

// Exit codes, which tell an end of the program's own from one that somebody else has made.
inline constexpr DWORD c_endedByItself = 71;
inline constexpr DWORD c_wronglyStarted = 72;

// How a client's request to close arrives: WM_COMMAND with this number.
inline constexpr WPARAM c_closeCommand = 50001;

// The beginning of the class of a notification icon's window.
inline constexpr std::wstring_view c_iconClass = L"Velmora_NotifyIcon_Handler_";
} // namespace Testing
