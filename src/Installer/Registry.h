#pragma once

#include <windows.h>

#include <wil/resource.h>

#include <array>
#include <cstdint>
#include <string>

// The product's keys and values under HKEY_LOCAL_MACHINE (64-bit view).
namespace Installer
{

// The installation that the uninstall entry describes.
struct InstallRecord
{
    bool found = false;                     // location and version were read and are valid
    std::wstring location;                  // the installation folder, ending in one backslash; empty when not found
    std::array<std::uint16_t, 4> version{}; // major, minor, build, revision; zeros when not found
};

// Reads the uninstall entry. Returns a record with `found` false on any failure; nothing is thrown.
InstallRecord ReadInstallRecord() noexcept;

// Opens a key below HKEY_LOCAL_MACHINE with KEY_ALL_ACCESS, or creates it. Returns S_OK or the Win32 error as HRESULT.
HRESULT OpenMachineKey(const wchar_t* subKey, wil::unique_hkey& key) noexcept;

// The three removals make up to ten attempts, 1000 ms after each failure. They return S_OK when the entries are removed
// or did not exist, otherwise the last attempt's Win32 error as HRESULT.

// Removes the product's values from the Run and StartupApproved keys.
HRESULT RemoveStartupEntry() noexcept;

// Removes the product's App Paths entry, RegisteredApplications value, ProgID and URL scheme, and notifies the shell.
// Removes the whole settings key with `removeUserSettings`, otherwise only its Capabilities.
HRESULT DeregisterApplication(bool removeUserSettings) noexcept;

// Removes the uninstall entry (Settings > Installed apps).
HRESULT RemoveUninstallEntry() noexcept;

} // namespace Installer
