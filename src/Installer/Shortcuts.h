#pragma once

#include <windows.h>

#include <string>

// The shortcuts that all users of the machine see.
namespace Installer
{

// Delete the product's shortcut from the desktop of all users, and from the programs in their Start menu, and tell the
// shell. Up to ten attempts, with a second's pause after every failure. Return S_OK when the shortcut is gone or was
// not there, otherwise the last failure.
HRESULT DeleteDesktopShortcut() noexcept;
HRESULT DeleteStartMenuShortcut() noexcept;

// The path of the product's shortcut in a folder. Returns S_OK, or E_OUTOFMEMORY.
HRESULT BuildShortcutPath(const wchar_t* folder, std::wstring& path) noexcept;

// Deletes one shortcut, in one attempt. A folder of that name is left alone. Returns S_OK when there is no such file
// (any more), otherwise the Win32 error as HRESULT; a read-only file is access denied.
HRESULT DeleteShortcutFile(const std::wstring& path) noexcept;

} // namespace Installer
