#include "Installer/Common.h"
#include "Installer/Logger.h"
#include "Installer/Migrator.h"
#include "Installer/Path.h"
#include "Installer/Resources.h"
#include "Installer/StatusWindow.h"
#include "Installer/ThreadName.h"
#include "Uninstaller/CommandLine.h"
#include "Uninstaller/CrashReporting.h"
#include "Uninstaller/Ending.h"
#include "Uninstaller/Preconditions.h"
#include "Uninstaller/Relocation.h"
#include "Uninstaller/RunContext.h"
#include "Uninstaller/Sequence.h"
#include "Uninstaller/SingleInstance.h"

#include <windows.h>

#include <wil/resource.h>
#include <wil/stl.h>
#include <wil/win32_helpers.h>
#include <winrt/base.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace Uninstaller
{

namespace
{

constexpr wchar_t c_windowClass[] = L"VELMORA_UNINSTALLER";
constexpr wchar_t c_windowTitle[] = L"Velmora Uninstaller";
constexpr wchar_t c_headline[] = L"Uninstalling Velmora\nThis may take a few seconds.";

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

Ending ShowHelp(Installer::Logger& logger)
{
    for (const wchar_t* const line : c_helpLines)
    {
        logger.Info(line);
    }
    return Ending(Outcome::HelpShown);
}

// Windows and the C runtime tell of a failure (a crash, a drive without a medium) in a dialog, which nobody may be
// there to close. Crash reporting comes first all the same: Windows calls its filter before it looks at the error mode.
void ShowNoErrorDialogs()
{
    SetErrorMode(GetErrorMode() | SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    _set_error_mode(_OUT_TO_STDERR);
}

// What the program imports comes from there already (LoadConfiguration.s); what is loaded later, and is not named by
// its whole path, does too. The program may lie in a folder that any user can write to. (Crash reporting, which starts
// earlier, looks for its libraries there by itself.)
void LoadLibrariesOnlyFromSystemFolder()
{
    SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
}

// Whoever starts the program by a double-click in the installation folder makes that its current folder, which its
// console and the copy in the temporary folder would inherit, and a folder that is a process's current one cannot be
// removed.
void LeaveCurrentFolder()
{
    SetCurrentDirectoryW(Installer::FindSystemFolder().c_str());
}

// Returns as what the run goes on: a GUI run whose window cannot be shown becomes a verbose one. It keeps that window
// all the same, for its message boxes.
Installer::RunType ShowWindowIfAsked(Installer::RunType runType, std::optional<Installer::StatusWindow>& window)
{
    if (runType != Installer::RunType::Gui)
    {
        return runType;
    }
    window.emplace(GetModuleHandleW(nullptr), c_windowClass, c_windowTitle, c_headline, IDR_LOGO);
    return window->State() == Installer::StatusWindowState::Running ? runType : Installer::RunType::Verbose;
}

// All that the run does, until there is a reason to end it. What the end needs is put into `mutex` and `ownPath`, the
// running executable, as soon as it is there.
Ending Run(const RunContext& run, const CommandLine& commandLine, wil::unique_handle& mutex, std::wstring& ownPath)
{
    if (commandLine.help)
    {
        return ShowHelp(run.logger);
    }
    if (run.window != nullptr && run.runType != Installer::RunType::Gui) // whether or not it has come by now
    {
        run.logger.Warning(L"Failed to create the uninstaller window, running in verbose mode.", false);
    }
    if (auto refusal = CheckWindowsVersion(run.logger))
    {
        return *std::move(refusal);
    }
    winrt::init_apartment();
    if (auto refusal = CheckElevation(run.logger))
    {
        return *std::move(refusal);
    }
    if (auto refusal = CheckSingleInstance(mutex))
    {
        return *std::move(refusal);
    }
    const InstallFolder installFolder = FindInstallFolder(run.logger);
    ownPath = wil::GetModuleFileNameW<std::wstring>();
    if (!installFolder.isProtected && Installer::IsInside(ownPath, installFolder.path))
    {
        return Relocate(run.logger, ownPath, commandLine.argument, mutex);
    }
    return UninstallProduct(run, installFolder, ownPath);
}

} // namespace

} // namespace Uninstaller

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int)
{
    using namespace Uninstaller;

    StartCrashReporting();
    ShowNoErrorDialogs();
    LoadLibrariesOnlyFromSystemFolder();
    Installer::UseRegisteredClassesOnly();
    Installer::NameThread(L"uninstaller_thread");
    LeaveCurrentFolder();
    const CommandLine commandLine = ParseCommandLine();

    // The logger goes before the window.
    std::optional<Installer::StatusWindow> window;
    const Installer::RunType runType = ShowWindowIfAsked(commandLine.runType, window);
    Installer::Logger logger(runType);
    logger.Info(L"Running the Velmora uninstaller (" + std::to_wstring(GetCurrentProcessId()) + L")...");
    logger.Info(std::wstring(L"Requested run type of ") + NameOf(runType));
    const RunContext run{.logger = logger, .runType = runType, .window = window ? &*window : nullptr};
    wil::unique_handle mutex;
    std::wstring ownPath;
    const Ending ending = Run(run, commandLine, mutex, ownPath);
    const ExitCode code = EndRun(run, ending, ownPath);
    ReleaseSingleInstance(mutex);
    return code;
}
