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

const wchar_t* GetRunTypeName(Installer::RunType runType)
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

// Suppresses the error boxes of Windows and the C runtime: a silent run must not wait for a click. The unhandled
// exception filter of crash reporting still runs: Windows calls it before it checks the error mode.
void SuppressErrorDialogs()
{
    SetErrorMode(GetErrorMode() | SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    _set_error_mode(_OUT_TO_STDERR);
}

// Against DLL planting: the program may run from a folder that any user can write to. The load configuration restricts
// the imports' search path (LoadConfiguration.s); this restricts LoadLibrary's. (Crash reporting, which starts earlier,
// does so by itself.)
void RestrictDllSearchToSystem32()
{
    SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
}

// No junction is followed that somebody without administrator's rights has created. A Windows without the policy
// refuses it.
void FollowTrustedRedirectionsOnly()
{
    PROCESS_MITIGATION_REDIRECTION_TRUST_POLICY policy{};
    policy.EnforceRedirectionTrust = 1;
    SetProcessMitigationPolicy(ProcessRedirectionTrustPolicy, &policy, sizeof(policy));
}

// A process's current directory cannot be deleted. Started by a double-click, that is the installation folder, and the
// console and the relocated copy would inherit it.
void ResetCurrentDirectory()
{
    SetCurrentDirectoryW(Installer::FindSystemFolder().c_str());
}

// Returns the run type to go on with: Verbose when the window of a GUI run cannot be created. `window` stays set then,
// for its message boxes.
Installer::RunType CreateWindowIfRequested(Installer::RunType runType, std::optional<Installer::StatusWindow>& window)
{
    if (runType != Installer::RunType::Gui)
    {
        return runType;
    }
    window.emplace(GetModuleHandleW(nullptr), c_windowClass, c_windowTitle, c_headline, IDR_LOGO);
    return window->State() == Installer::StatusWindowState::Running ? runType : Installer::RunType::Verbose;
}

// The run up to its ending. Sets `mutex` and `ownPath` (the running executable), which outlive it, when they are known.
Ending Run(const RunContext& run, const CommandLine& commandLine, wil::unique_handle& mutex, std::wstring& ownPath)
{
    if (commandLine.help)
    {
        return ShowHelp(run.logger);
    }
    if (run.runType != commandLine.runType)
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
    SuppressErrorDialogs();
    RestrictDllSearchToSystem32();
    FollowTrustedRedirectionsOnly();
    Installer::UseRegisteredClassesOnly();
    Installer::NameThread(L"uninstaller_thread");
    ResetCurrentDirectory();
    const CommandLine commandLine = ParseCommandLine();

    // Declared before the logger: destroyed after it.
    std::optional<Installer::StatusWindow> window;
    const Installer::RunType runType = CreateWindowIfRequested(commandLine.runType, window);
    Installer::Logger logger(runType);
    logger.Info(L"Running the Velmora uninstaller (" + std::to_wstring(GetCurrentProcessId()) + L")...");
    logger.Info(std::wstring(L"Requested run type of ") + GetRunTypeName(runType));
    const RunContext run{.logger = logger, .runType = runType, .window = window ? &*window : nullptr};
    wil::unique_handle mutex;
    std::wstring ownPath;
    const Ending ending = Run(run, commandLine, mutex, ownPath);
    const ExitCode code = EndRun(run, ending, ownPath);
    ReleaseSingleInstance(mutex);
    return code;
}
