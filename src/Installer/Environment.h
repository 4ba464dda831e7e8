#pragma once

#include <windows.h>

#include <wil/resource.h>

#include <string>

// The machine's environment variables.
namespace Installer
{

// Opens the key that holds the machine's environment, with KEY_READ or KEY_ALL_ACCESS. The caller owns the key. Returns
// S_OK or the Win32 error as HRESULT.
HRESULT OpenEnvironmentKey(REGSAM access, wil::unique_hkey& key) noexcept;

// Reads the machine's search path as it is stored, nothing expanded, and ends it with a ";" unless it is empty. Returns
// S_OK or the failure as HRESULT; a missing value is HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND).
HRESULT ReadMachinePath(std::wstring& path) noexcept;

// Takes the last occurrence of an entry out of the machine's search path and tells running programs. The entry is
// compared as it stands, letter case aside, and must not be empty. Returns S_OK when it is gone or was not there,
// otherwise the failure as HRESULT; the search path is then as it was. One attempt.
HRESULT RemoveFromMachinePath(const std::wstring& entry) noexcept;

} // namespace Installer
