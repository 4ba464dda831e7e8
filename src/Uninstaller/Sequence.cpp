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

// What others live in stays, whoever wrote it into the install record.
HRESULT DeleteInstallFolder(const Removal& removal, const std::wstring& folder)
{
    return removal.installFolder.isProtected ? E_ACCESSDENIED : DeleteFolderWithRetry(folder);
}

// Where the window's progress stands; the default: as before.
struct Progress
{
    int phase = 0;   // 1 to 10: goes to its start; 0: the same as before
    int percent = 0; // of the phase; 0: as before
};

// What a failed step means for the result of the removal.
enum class Failure
{
    MakesPartial, // logged as an error; the run ends with EXIT_ERROR_PARTIAL_UNINSTALL
    Warns,        // logged as a warning only
    IsLogged,     // by the operation itself; the end of the run is as with the first one
};

// It and its text, which the folder and the system's reason follow.
struct OnFailure
{
    constexpr OnFailure(Failure failure, const wchar_t* line) : meaning(failure), text(line) {}

    Failure meaning;
    const wchar_t* text;
};

constexpr OnFailure MakesPartial(const wchar_t* text)
{
    return {Failure::MakesPartial, text};
}

constexpr OnFailure Warns(const wchar_t* text)
{
    return {Failure::Warns, text};
}

constexpr OnFailure c_isLogged(Failure::IsLogged, L"");

// Such an operation is called once.
constexpr RetryPolicy c_retriesByItself = c_once;

std::wstring NoFolder(const Removal&)
{
    return {};
}

bool Always(const Removal&, const std::wstring&)
{
    return true;
}

// It has no default constructor, as a failure has none: what is left out of a row that has no default does not compile.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
struct Step
{
    Progress progress{};            // before the step, also of one that is left out
    const wchar_t* shown = nullptr; // logged and shown before the step; null for nothing
    // What the operation works on, where it is a folder: the failure names it.
    std::wstring (*folder)(const Removal& removal) = NoFolder;
    // When the step is done; one that is left out is not shown either.
    bool (*applies)(const Removal& removal, const std::wstring& folder) = Always;
    HRESULT (*operation)(const Removal& removal, const std::wstring& folder);
    RetryPolicy retry;
    OnFailure failure;
};

// Everything that is removed, in this order.
constexpr Step c_steps[] = {
    {.progress = {.phase = 2},
     .shown = L"Deleting desktop shortcut...",
     .operation = [](const Removal&, const std::wstring&) { return DeleteDesktopShortcut(); },
     .retry = c_retriesByItself,
     .failure = MakesPartial(L"Unable to delete desktop shortcut.")},
    {.progress = {.percent = 50},
     .shown = L"Deleting start menu shortcut...",
     .operation = [](const Removal&, const std::wstring&) { return DeleteStartMenuShortcut(); },
     .retry = c_retriesByItself,
     .failure = MakesPartial(L"Unable to delete start menu shortcut.")},
    {.progress = {.phase = 3},
     .shown = L"Uninstalling updater service...",
     .operation = [](const Removal&, const std::wstring&) { return RemoveService(c_updaterService); },
     .retry = c_tenTimesPausingBetween,
     .failure = MakesPartial(L"Unable to uninstall updater service.")},
    {.progress = {.percent = 50},
     .shown = L"Uninstalling authorization service...",
     .operation = [](const Removal&, const std::wstring&) { return RemoveService(c_authService); },
     .retry = c_tenTimesPausingBetween,
     .failure = MakesPartial(L"Unable to uninstall authorization service.")},
    {.shown = L"Removing from path...",
     .operation = [](const Removal&, const std::wstring&) { return RemoveFromMachinePath(c_pathEntry); },
     .retry = c_tenTimesPausingBetween,
     .failure = MakesPartial(L"Unable to remove from path.")},
    {.progress = {.phase = 4},
     .shown = L"Deleting firewall rules...",
     .operation = [](const Removal&, const std::wstring&) { return RemoveFirewallRule(); },
     .retry = c_tenTimesPausingBetween,
     .failure = MakesPartial(L"Unable to delete firewall rules.")},
    {.progress = {.phase = 5},
     .shown = L"Removing startup entry...",
     .operation = [](const Removal&, const std::wstring&) { return RemoveStartupEntry(); },
     .retry = c_retriesByItself,
     .failure = MakesPartial(L"Unable to remove startup entry.")},
    {.progress = {.phase = 6},
     .shown = L"Deregistering application from system...",
     .operation = [](const Removal& removal,
                     const std::wstring&) { return DeregisterApplication(removal.removeUserSettings); },
     .retry = c_retriesByItself,
     .failure = MakesPartial(L"Unable to deregister application from system.")},
    {.progress = {.phase = 7},
     .shown = L"Removing uninstall entry...",
     .operation = [](const Removal&, const std::wstring&) { return RemoveUninstallEntry(); },
     .retry = c_retriesByItself,
     .failure = MakesPartial(L"Unable to remove uninstall entry.")},
    {.progress = {.phase = 8},
     .shown = L"Deleting installation folder...",
     .folder = [](const Removal& removal) { return removal.installFolder.path; },
     .applies = [](const Removal&, const std::wstring& folder) { return FolderExists(folder); },
     .operation = DeleteInstallFolder,
     .retry = c_retriesByItself,
     .failure = MakesPartial(L"Unable to delete installation folder")},
    {.progress = {.phase = 9},
     .shown = L"Deleting OrvaneAuthService folders...",
     .folder = [](const Removal&) { return GetProgramFilesFolder() + c_authService; },
     .operation = [](const Removal&, const std::wstring& folder) { return RemoveFolder(folder); },
     .retry = c_tenTimesPausingBetween,
     .failure = Warns(L"Unable to delete PF OrvaneAuthService folder")},
    {.progress = {.percent = 20},
     .folder = [](const Removal&) { return GetProgramDataFolder() + c_authService; },
     .operation = [](const Removal&, const std::wstring& folder) { return RemoveFolder(folder); },
     .retry = c_tenTimesPausingBetween,
     .failure = Warns(L"Unable to delete PD OrvaneAuthService folder")},
    {.progress = {.percent = 40},
     .shown = L"Deleting VelmoraUpdater folder...",
     .folder = [](const Removal&) { return GetProgramDataFolder() + L"VelmoraUpdater"; },
     .operation = [](const Removal&, const std::wstring& folder) { return RemoveFolder(folder); },
     .retry = c_tenTimesPausingBetween,
     .failure = Warns(L"Unable to delete VelmoraUpdater folder")},
    {.progress = {.percent = 60},
     .shown = L"Attempting to clean up files for current user...",
     .applies = [](const Removal& removal, const std::wstring&) { return removal.removeUserSettings; },
     .operation = [](const Removal& removal,
                     const std::wstring&) { return CleanUpForCurrentUser(removal.run) ? S_OK : E_FAIL; },
     .retry = c_retriesByItself,
     .failure = c_isLogged},
    {.operation = [](const Removal& removal, const std::wstring&) { return RemoveLegacyPackage(removal.run.logger); },
     .retry = c_fiveSlowAttempts,
     .failure = Warns(L"Unable to remove legacy packaged installation.")},
};

std::wstring DescribeFailure(const Step& step, const std::wstring& folder, HRESULT result)
{
    std::wstring text = step.failure.text;
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
    switch (step.failure.meaning)
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
    ShowProgress(removal.run, {.phase = c_phaseCount, .percent = 100});
    Announce(removal.run, L"Uninstall Complete!");
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
