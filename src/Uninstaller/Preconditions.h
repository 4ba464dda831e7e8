#pragma once

#include "Uninstaller/ExitCode.h"
#include "Uninstaller/RunContext.h"

#include <wil/resource.h>

#include <optional>
#include <string>

// What is settled before anything is removed. A check that lets the run go on returns nothing; one that does not has
// reported why (in the log, and in a message box when there is a window) and ended the run (finishProcess), and returns
// the exit code that is left to return.
namespace Uninstaller
{

// Windows 10 version 2004 (10.0.19041) or later: EXIT_ERROR_WINDOWS_VERSION for an older one.
std::optional<ExitCode> CheckWindowsVersion(const RunContext& run);

// Local System or an elevated administrator: EXIT_ERROR_NOT_ELEVATED for anybody else. Throws wil::ResultException when
// the process's token cannot be asked.
std::optional<ExitCode> CheckElevation(const RunContext& run);

// Takes the mutex that the product's installer and uninstaller share and puts it into `mutex`, which is to be held as
// long as the run works on the machine: EXIT_ERROR_ALREADY_RUNNING when another one holds it or it cannot be had.
std::optional<ExitCode> CheckSingleInstance(const RunContext& run, wil::unique_handle& mutex);

// Lets the next installer or uninstaller run. Throws wil::ResultException when the handle cannot be closed.
void ReleaseSingleInstance(wil::unique_handle& mutex);

// Where the product is installed, and whether that is a folder that is never deleted (IsProtectedFolder): decided once,
// the whole run goes by it.
struct InstallFolder
{
    std::wstring path; // ends in a backslash
    bool isProtected = false;
};

// The folder that the uninstall entry names, otherwise the default one below Program Files. Logs what was found.
InstallFolder FindInstallFolder(Installer::Logger& logger);

} // namespace Uninstaller
