#pragma once

#include <windows.h>

#include <wil/resource.h>

#include <array>
#include <cstdint>
#include <string>

// All that the product has in the registry of the machine (HKEY_LOCAL_MACHINE, 64-bit view).
namespace Installer
{

// What the uninstall entry says of an installation.
struct InstallRecord
{
    bool found = false;                     // the whole record was read and makes sense
    std::wstring location;                  // the installation folder, ending in one backslash; empty when not found
    std::array<std::uint16_t, 4> version{}; // major, minor, build, revision; zeros when not found
};

// Reads the uninstall entry. Every failure gives a record that is not found.
InstallRecord ReadInstallRecord() noexcept;

// Opens a key below HKEY_LOCAL_MACHINE with full access, and creates it when it is missing. The caller owns the key.
// Returns S_OK or the Win32 error as HRESULT.
HRESULT OpenMachineKey(const wchar_t* subKey, wil::unique_hkey& key) noexcept;

// The three removals try up to ten times with a second's pause after every failure. They return S_OK when the entries
// are gone or were not there, otherwise the last attempt's Win32 error as HRESULT.

// Removes the product from the programs that start at sign-in, and from the list of approved ones.
HRESULT RemoveStartupEntry() noexcept;

// Removes the product from the default programs, the App Paths and the URL schemes, and tells the shell. The product's
// own settings key goes with `removeUserSettings`; otherwise it stays, less its capabilities.
HRESULT DeregisterApplication(bool removeUserSettings) noexcept;

// Removes the entry that Windows lists among the installed programs.
HRESULT RemoveUninstallEntry() noexcept;

} // namespace Installer
