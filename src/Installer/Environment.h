#pragma once

#include <windows.h>

#include <wil/resource.h>

#include <string>

// The machine-wide PATH.
namespace Installer
{

// Opens the registry key of the machine's environment variables. Returns S_OK or the Win32 error as HRESULT.
HRESULT OpenEnvironmentKey(REGSAM access, wil::unique_hkey& key) noexcept;

// Reads the machine's PATH unexpanded, and appends a ";" unless it is empty or ends in one. Returns S_OK or the failure
// as HRESULT; a missing value is HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND).
HRESULT ReadMachinePath(std::wstring& path) noexcept;

// Removes the last occurrence of an entry from the machine's PATH and broadcasts WM_SETTINGCHANGE. Compares whole
// entries, unexpanded, ignoring case; `entry` must not be empty. One attempt. Returns S_OK when the entry is removed or
// was not there, otherwise the failure as HRESULT, with PATH unchanged.
HRESULT RemoveFromMachinePath(const std::wstring& entry) noexcept;

} // namespace Installer
