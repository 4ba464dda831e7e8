#include "Installer/Logger.h"
#include "Uninstaller/CommandLine.h"
#include "Uninstaller/CrashReporting.h"
#include "Uninstaller/EndOfProcess.h"
#include "Uninstaller/ExitCode.h"
#include "Uninstaller/Preconditions.h"
#include "Uninstaller/Sequence.h"

#include <windows.h>

#include <wil/stl.h>
#include <wil/win32_helpers.h>
#include <winrt/base.h>

#include <string>

namespace Uninstaller
{

namespace
{

const wchar_t* NameOf(Installer::RunType runType)
{
    switch (runType)
    {
    case Installer::RunType::Gui:
        return L"Gui";
    case Installer::RunType::Verbose:
        return L"Verbose";
    case Installer::RunType::Silent:
        return L"Silent";
    }
    return L"";
}

int ShowHelp(Installer::Logger& logger)
{
    for (const wchar_t* const line : c_helpLines)
    {
        logger.Info(line);
    }
    finishProcess(logger.LogPath(), {}, true);
    return EXIT_NO_ERROR;
}

int RefuseWithoutConfirmation(Installer::Logger& logger)
{
    logger.Error(L"This build cannot ask for confirmation. Use -s to uninstall without being asked.", false);
    finishProcess(logger.LogPath(), {}, false);
    return EXIT_ERROR_PERMISSION_DIALOG_FAIL;
}

} // namespace

} // namespace Uninstaller

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int)
{
    using namespace Uninstaller;

    StartCrashReporting();
    SetThreadDescription(GetCurrentThread(), L"uninstaller_thread");
    const CommandLine commandLine = ParseCommandLine();

    Installer::Logger logger;
    logger.Info(L"Running the Velmora uninstaller (" + std::to_wstring(GetCurrentProcessId()) + L")...");
    logger.Info(std::wstring(L"Requested run type of ") + NameOf(commandLine.runType));
    if (commandLine.help)
    {
        return ShowHelp(logger);
    }

    // Nothing is removed without being asked for: only a silent run goes without the confirmation.
    if (commandLine.runType != Installer::RunType::Silent)
    {
        return RefuseWithoutConfirmation(logger);
    }

    winrt::init_apartment();
    return UninstallProduct({
        .logger = logger,
        .installFolder = FindInstallFolder(logger),
        .ownPath = wil::GetModuleFileNameW<std::wstring>(),
    });
}
