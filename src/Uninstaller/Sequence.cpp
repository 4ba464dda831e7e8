#include "Uninstaller/Sequence.h"

#include "Installer/ClientHelper.h"
#include "Installer/Common.h"
#include "Installer/DirectoryLock.h"
#include "Installer/Environment.h"
#include "Installer/Firewall.h"
#include "Installer/Migrator.h"
#include "Installer/ProductServices.h"
#include "Installer/Registry.h"
#include "Installer/Retry.h"
#include "Installer/Service.h"
#include "Installer/Shortcuts.h"
#include "Uninstaller/Confirmation.h"
#include "Uninstaller/StartingProcess.h"
#include "Uninstaller/UserCleanup.h"

#include <windows.h>

#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

namespace Uninstaller
{

namespace
{

using namespace Installer;

constexpr DWORD c_pauseBeforeStartMilliseconds = 200;

// Windows may still be busy with the package, or somebody with what is in it.
constexpr RetryPolicy c_fiveSlowAttempts{5, 5000, false};

// What the steps work on.
struct Removal
{
    const RunContext& run;
    const InstallFolder& installFolder;
    bool removeUserSettings;
};

// The entry as the installer wrote it: the reference is part of the text and is not expanded.
constexpr wchar_t c_pathEntry[] = L"%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib";

// What a failed step means for the result of the removal.
enum class Failure
{
    MakesPartial, // logged as an error; the run ends with EXIT_ERROR_PARTIAL_UNINSTALL
    Warns,        // logged as a warning only
    IsLogged,     // by the operation itself; the end of the run is as with the first one
};

// Lets an operation of the library stand in the list below, whichever of its arguments it takes.
template <auto Operation>
HRESULT Do(const Removal& removal, const std::wstring& folder)
{
    if constexpr (std::is_invocable_v<decltype(Operation), const Removal&>)
    {
        return Operation(removal);
    }
    else if constexpr (std::is_invocable_v<decltype(Operation), const std::wstring&>)
    {
        return Operation(folder);
    }
    else
    {
        return Operation();
    }
}

HRESULT DoNothing(const Removal&)
{
    return S_OK;
}

HRESULT RemoveUpdaterService(const Removal&)
{
    return RemoveService(c_updaterService);
}

HRESULT RemoveAuthService(const Removal&)
{
    return RemoveService(c_authService);
}

HRESULT RemovePathEntry(const Removal&)
{
    return RemoveFromMachinePath(c_pathEntry);
}

HRESULT Deregister(const Removal& removal)
{
    return DeregisterApplication(removal.removeUserSettings);
}

HRESULT RemovePackage(const Removal& removal)
{
    return RemoveLegacyPackage(removal.run.logger);
}

// What others live in stays, whoever wrote it into the install record.
HRESULT DeleteInstallFolder(const Removal& removal)
{
    return removal.installFolder.isProtected ? E_ACCESSDENIED : DeleteFolderWithRetry(removal.installFolder.path);
}

HRESULT CleanUpUser(const Removal& removal)
{
    return CleanUpForCurrentUser(removal.run) ? S_OK : E_FAIL;
}

// What an operation works on, where it is a folder: the failure names it.
std::wstring NoFolder(const Removal&)
{
    return {};
}

std::wstring PathOfInstallFolder(const Removal& removal)
{
    return removal.installFolder.path;
}

std::wstring AuthServiceProgramFolder(const Removal&)
{
    return GetProgramFilesFolder() + c_authService;
}

std::wstring AuthServiceDataFolder(const Removal&)
{
    return GetProgramDataFolder() + c_authService;
}

std::wstring UpdaterDataFolder(const Removal&)
{
    return GetProgramDataFolder() + L"VelmoraUpdater";
}

// When a step is done; one that is left out is not shown either.
bool Always(const Removal&, const std::wstring&)
{
    return true;
}

bool IfFolderExists(const Removal&, const std::wstring& folder)
{
    return FolderExists(folder);
}

bool IfSettingsGo(const Removal& removal, const std::wstring&)
{
    return removal.removeUserSettings;
}

// Where the window's progress stands; the default: as before.
struct Progress
{
    int phase = 0;   // 1 to 10: goes to its start; 0: the same as before
    int percent = 0; // of the phase; 0: as before
};

struct Step
{
    Progress progress;              // before the step, also of one that is left out
    const wchar_t* shown = nullptr; // logged and shown before the step; null for nothing
    HRESULT (*operation)(const Removal& removal, const std::wstring& folder) = Do<DoNothing>;
    RetryPolicy retry = c_once;       // on top of what the operation does by itself
    const wchar_t* failureText = L""; // logged when it fails; the folder and the system's reason follow
    Failure failure = Failure::MakesPartial;
    std::wstring (*folder)(const Removal& removal) = NoFolder;
    bool (*applies)(const Removal& removal, const std::wstring& folder) = Always;
};

// Everything that is removed, in this order.
// clang-format off
constexpr Step c_steps[] = {
    {{.phase = 2}, L"Deleting desktop shortcut...",
        Do<DeleteDesktopShortcut>, c_once,
        L"Unable to delete desktop shortcut."},
    {{.percent = 50}, L"Deleting start menu shortcut...",
        Do<DeleteStartMenuShortcut>, c_once,
        L"Unable to delete start menu shortcut."},
    {{.phase = 3}, L"Uninstalling updater service...",
        Do<RemoveUpdaterService>, c_tenTimesPausingBetween,
        L"Unable to uninstall updater service."},
    {{.percent = 50}, L"Uninstalling authorization service...",
        Do<RemoveAuthService>, c_tenTimesPausingBetween,
        L"Unable to uninstall authorization service."},
    {{}, L"Removing from path...",
        Do<RemovePathEntry>, c_tenTimesPausingBetween,
        L"Unable to remove from path."},
    {{.phase = 4}, L"Deleting firewall rules...",
        Do<RemoveFirewallRule>, c_tenTimesPausingBetween,
        L"Unable to delete firewall rules."},
    {{.phase = 5}, L"Removing startup entry...",
        Do<RemoveStartupEntry>, c_once,
        L"Unable to remove startup entry."},
    {{.phase = 6}, L"Deregistering application from system...",
        Do<Deregister>, c_once,
        L"Unable to deregister application from system."},
    {{.phase = 7}, L"Removing uninstall entry...",
        Do<RemoveUninstallEntry>, c_once,
        L"Unable to remove uninstall entry."},
    {{.phase = 8}, L"Deleting installation folder...",
        Do<DeleteInstallFolder>, c_once,
        L"Unable to delete installation folder", Failure::MakesPartial, PathOfInstallFolder, IfFolderExists},
    {{.phase = 9}, L"Deleting OrvaneAuthService folders...",
        Do<RemoveFolder>, c_tenTimesPausingBetween,
        L"Unable to delete PF OrvaneAuthService folder", Failure::Warns, AuthServiceProgramFolder},
    {{.percent = 20}, nullptr,
        Do<RemoveFolder>, c_tenTimesPausingBetween,
        L"Unable to delete PD OrvaneAuthService folder", Failure::Warns, AuthServiceDataFolder},
    {{.percent = 40}, L"Deleting VelmoraUpdater folder...",
        Do<RemoveFolder>, c_tenTimesPausingBetween,
        L"Unable to delete VelmoraUpdater folder", Failure::Warns, UpdaterDataFolder},
    {{.percent = 60}, L"Attempting to clean up files for current user...",
        Do<CleanUpUser>, c_once,
        L"", Failure::IsLogged, NoFolder, IfSettingsGo},
    {{}, nullptr,
        Do<RemovePackage>, c_fiveSlowAttempts,
        L"Unable to remove legacy packaged installation.", Failure::Warns},
    {{.phase = 10, .percent = 100}, L"Uninstall Complete!"},
};
// clang-format on

std::wstring DescribeFailure(const Step& step, const std::wstring& folder, HRESULT result)
{
    std::wstring text = step.failureText;
    if (!folder.empty())
    {
        text += L" (" + folder + L")";
    }
    return text + L" Reason: " + GetSystemMessage(result);
}

void ShowProgress(const RunContext& run, const Progress& progress)
{
    if (run.window == nullptr)
    {
        return;
    }
    if (progress.phase != 0)
    {
        run.window->SetPhase(progress.phase, c_phaseCount, 0);
    }
    if (progress.percent != 0)
    {
        run.window->SetProgress(progress.percent);
    }
}

// Logs what is being done, and tells the user.
void Announce(const RunContext& run, const std::wstring& text)
{
    run.logger.Info(text);
    if (run.window != nullptr)
    {
        run.window->SetStatusText(text);
    }
}

// Does one step. Returns whether the result of the run is still a full one.
bool DoStep(const Step& step, const Removal& removal)
{
    ShowProgress(removal.run, step.progress);
    const std::wstring folder = step.folder(removal);
    if (!step.applies(removal, folder))
    {
        return true;
    }
    if (step.shown != nullptr)
    {
        Announce(removal.run, step.shown);
    }
    const HRESULT result = Retry(step.retry, [&] { return step.operation(removal, folder); });
    if (result == S_OK)
    {
        return true;
    }
    switch (step.failure)
    {
    case Failure::Warns:
        removal.run.logger.Warning(DescribeFailure(step, folder, result), false);
        return true;
    case Failure::MakesPartial:
        removal.run.logger.Error(DescribeFailure(step, folder, result), false);
        return false;
    case Failure::IsLogged:
        break;
    }
    return false;
}

// Returns what to do with the settings, or how the run ends.
std::variant<UserSettings, Ending> Confirm(const RunContext& run)
{
    Sleep(c_pauseBeforeStartMilliseconds);
    if (run.runType == RunType::Silent)
    {
        return UserSettings::Stay;
    }
    return AskForConfirmation(run);
}

// Returns whether nothing runs from the installation folder any more. The process that this one was started by may
// still do so for a moment.
bool EndProcessesIn(const std::wstring& installFolder, const RunContext& run, const std::wstring& ownPath)
{
    const auto starter = WaitForStartingProcess(ownPath, installFolder);
    return CheckDirectoryLocked(installFolder, run.logger, run.runType == RunType::Silent, DialogOwner(run),
                                starter ? std::optional(starter->id) : std::nullopt);
}

// Ends what runs of the product: nothing is removed under a running program. Returns the reason to end the run when
// something still runs.
std::optional<Ending> ShutDown(const RunContext& run, const InstallFolder& installFolder, const std::wstring& ownPath)
{
    ShowProgress(run, {.phase = 1});
    Announce(run, L"Stopping Velmora...");
    const bool isClientStopped = StopRunningClient(run.logger);
    const HRESULT services =
        isClientStopped ? Retry(c_tenTimesPausingBetween, [&] { return StopServices(run.logger); }) : S_OK;
    if (!isClientStopped || services != S_OK)
    {
        return Ending(Outcome::ClientRunning, std::wstring(L"Is Client Stopped:") + (isClientStopped ? L"1" : L"0") +
                                                  L", Services Stopped Result: " + std::to_wstring(services));
    }
    // In a folder that is not deleted anyway, nobody is in the way.
    if (!installFolder.isProtected && !EndProcessesIn(installFolder.path, run, ownPath))
    {
        return Ending(Outcome::FolderLocked);
    }
    return std::nullopt;
}

// Returns whether nothing is left.
bool RemoveEverything(const Removal& removal)
{
    bool complete = true;
    for (const Step& step : c_steps)
    {
        complete = DoStep(step, removal) && complete;
    }
    return complete;
}

} // namespace

Ending UninstallProduct(const RunContext& run, const InstallFolder& installFolder, const std::wstring& ownPath)
{
    auto confirmed = Confirm(run);
    if (auto* const ending = std::get_if<Ending>(&confirmed))
    {
        return std::move(*ending);
    }
    const bool removeUserSettings = std::get<UserSettings>(confirmed) == UserSettings::Go;
    run.logger.Info(removeUserSettings ? L"Velmora will attempt to delete user data directories."
                                       : L"Velmora will leave user directories as-is.");
    if (auto ending = ShutDown(run, installFolder, ownPath))
    {
        return *std::move(ending);
    }
    const bool isComplete = RemoveEverything({run, installFolder, removeUserSettings});
    return Ending(isComplete ? Outcome::Removed : Outcome::PartlyRemoved);
}

} // namespace Uninstaller
