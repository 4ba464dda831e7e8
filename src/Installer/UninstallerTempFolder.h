#pragma once

#include <windows.h>

#include <wil/resource.h>

#include <string>

// The uninstaller's folder in the temporary folder, for the log, the crash reports and the relocated copy. Others can
// write to the temporary folder (every user to that of Local System), so the folder is private: see PrivateFolder.h.
namespace Installer
{

// The folder while it is held: nobody can rename or delete it, or make a link of it.
struct UninstallerTempFolder
{
    std::wstring path; // ends in a backslash
    // Why it cannot be created, or is not private, if so: nothing must be read from it or written to it then.
    HRESULT result = E_FAIL;
    wil::unique_hfile product; // the folder above it
    wil::unique_hfile folder;

    bool IsPrivate() const noexcept { return SUCCEEDED(result); }
};

// The folder's path, by default below "C:\Windows\Temp\" (when GetTempPathW fails, or when out of memory). Throws
// std::bad_alloc when the default path cannot be allocated either. Does not create the folder.
std::wstring GetUninstallerTempFolderPath();

// Creates the folder with all parents if needed, makes it private and opens it: up to ten attempts, 1000 ms after each
// failure. Throws as GetUninstallerTempFolderPath.
UninstallerTempFolder OpenUninstallerTempFolder();

// The same without holding it. Returns the path even if the folder cannot be created.
std::wstring GetUninstallerTempFolder();

} // namespace Installer
