#pragma once

#include <windows.h>

#include <string>

// The product's all-users shortcuts.
namespace Installer
{

// Delete the product's shortcut from the public desktop, and from the common Start menu programs, and notify the shell.
// Up to ten attempts, 1000 ms after each failure. Return S_OK when the shortcut is deleted or did not exist, otherwise
// the last failure.
HRESULT DeleteDesktopShortcut() noexcept;
HRESULT DeleteStartMenuShortcut() noexcept;

// Sets `path` to the product's shortcut in `folder`, which has no trailing backslash. Returns S_OK or E_OUTOFMEMORY.
HRESULT BuildShortcutPath(const wchar_t* folder, std::wstring& path) noexcept;

// Deletes one shortcut, in one attempt, and notifies the shell. Returns S_OK when it is deleted, does not exist or is a
// folder, otherwise the Win32 error as HRESULT (E_ACCESSDENIED for a read-only file).
HRESULT DeleteShortcutFile(const std::wstring& path) noexcept;

} // namespace Installer
