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
#include "Uninstaller/ParentProcess.h"
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

// Windows may still be servicing the package, or its files may be in use.
constexpr RetryPolicy c_packageRemovalRetries{5, 5000, false};

// The steps' input.
struct Removal
{
    const RunContext& run;
    const InstallFolder& installFolder;
    bool removeUserSettings;
};

// The installer's literal entry: the variable is not expanded.
constexpr wchar_t c_pathEntry[] = L"%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib";

// A protected folder is not deleted, even if the install record names it.
HRESULT DeleteInstallFolder(const Removal& removal, const std::wstring& folder)
{
    return removal.installFolder.isProtected ? E_ACCESSDENIED : DeleteFolderWithRetry(folder);
}

// The window's progress; the defaults leave it unchanged.
struct Progress
{
    int phase = 0;   // 1 to c_phaseCount; 0: unchanged
    int percent = 0; // of the phase; 0: unchanged
};

// What a failed step means for the run.
enum class Failure
{
    MakesPartial, // logged as an error; the exit code is EXIT_ERROR_PARTIAL_UNINSTALL
    Warns,        // logged as a warning
    IsLogged,     // like MakesPartial, but logged by the operation
};

// A failure's meaning and message; the folder and the system's message are appended.
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

// For operations that retry by themselves.
constexpr RetryPolicy c_retriesByItself = c_once;

std::wstring WithoutFolder(const Removal&)
{
    return {};
}

bool Always(const Removal&, const std::wstring&)
{
    return true;
}

// Not default-constructible, as OnFailure is not: a row that leaves out a member without a default does not compile.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
struct Step
{
    Progress progress{};                 // set before the step, even if it does not apply
    const wchar_t* statusText = nullptr; // logged and shown before the step; may be null
    // The folder that the operation deletes, if any; the failure's message names it.
    std::wstring (*folder)(const Removal& removal) = WithoutFolder;
    // Whether the step is run; if not, its status text is not logged either.
    bool (*applies)(const Removal& removal, const std::wstring& folder) = Always;
    HRESULT (*operation)(const Removal& removal, const std::wstring& folder);
    RetryPolicy retry;
    OnFailure failure;
};

// The removal steps, in order.
constexpr Step c_steps[] = {
    {.progress = {.phase = 2},
     .statusText = L"Deleting desktop shortcut...",
     .operation = [](const Removal&, const std::wstring&) { return DeleteDesktopShortcut(); },
     .retry = c_retriesByItself,
     .failure = MakesPartial(L"Unable to delete desktop shortcut.")},
    {.progress = {.percent = 50},
     .statusText = L"Deleting start menu shortcut...",
     .operation = [](const Removal&, const std::wstring&) { return DeleteStartMenuShortcut(); },
     .retry = c_retriesByItself,
     .failure = MakesPartial(L"Unable to delete start menu shortcut.")},
    {.progress = {.phase = 3},
     .statusText = L"Uninstalling updater service...",
     .operation = [](const Removal&, const std::wstring&) { return RemoveService(c_updaterService); },
     .retry = c_tenTimesPausingBetween,
     .failure = MakesPartial(L"Unable to uninstall updater service.")},
    {.progress = {.percent = 50},
     .statusText = L"Uninstalling authorization service...",
     .operation = [](const Removal&, const std::wstring&) { return RemoveService(c_authService); },
     .retry = c_tenTimesPausingBetween,
     .failure = MakesPartial(L"Unable to uninstall authorization service.")},
    {.statusText = L"Removing from path...",
     .operation = [](const Removal&, const std::wstring&) { return RemoveFromMachinePath(c_pathEntry); },
     .retry = c_tenTimesPausingBetween,
     .failure = MakesPartial(L"Unable to remove from path.")},
    {.progress = {.phase = 4},
     .statusText = L"Deleting firewall rules...",
     .operation = [](const Removal&, const std::wstring&) { return RemoveFirewallRule(); },
     .retry = c_tenTimesPausingBetween,
     .failure = MakesPartial(L"Unable to delete firewall rules.")},
    {.progress = {.phase = 5},
     .statusText = L"Removing startup entry...",
     .operation = [](const Removal&, const std::wstring&) { return RemoveStartupEntry(); },
     .retry = c_retriesByItself,
     .failure = MakesPartial(L"Unable to remove startup entry.")},
    {.progress = {.phase = 6},
     .statusText = L"Deregistering application from system...",
     .operation = [](const Removal& removal,
                     const std::wstring&) { return DeregisterApplication(removal.removeUserSettings); },
     .retry = c_retriesByItself,
     .failure = MakesPartial(L"Unable to deregister application from system.")},
    {.progress = {.phase = 7},
     .statusText = L"Removing uninstall entry...",
     .operation = [](const Removal&, const std::wstring&) { return RemoveUninstallEntry(); },
     .retry = c_retriesByItself,
     .failure = MakesPartial(L"Unable to remove uninstall entry.")},
    {.progress = {.phase = 8},
     .statusText = L"Deleting installation folder...",
     .folder = [](const Removal& removal) { return removal.installFolder.path; },
     .applies = [](const Removal&, const std::wstring& folder) { return FolderExists(folder); },
     .operation = DeleteInstallFolder,
     .retry = c_retriesByItself,
     .failure = MakesPartial(L"Unable to delete installation folder")},
    {.progress = {.phase = 9},
     .statusText = L"Deleting OrvaneAuthService folders...",
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
     .statusText = L"Deleting VelmoraUpdater folder...",
     .folder = [](const Removal&) { return GetProgramDataFolder() + L"VelmoraUpdater"; },
     .operation = [](const Removal&, const std::wstring& folder) { return RemoveFolder(folder); },
     .retry = c_tenTimesPausingBetween,
     .failure = Warns(L"Unable to delete VelmoraUpdater folder")},
    {.progress = {.percent = 60},
     .statusText = L"Attempting to clean up files for current user...",
     .applies = [](const Removal& removal, const std::wstring&) { return removal.removeUserSettings; },
     .operation = [](const Removal& removal,
                     const std::wstring&) { return CleanUpForCurrentUser(removal.run) ? S_OK : E_FAIL; },
     .retry = c_retriesByItself,
     .failure = c_isLogged},
    {.operation = [](const Removal& removal, const std::wstring&) { return RemoveLegacyPackage(removal.run.logger); },
     .retry = c_packageRemovalRetries,
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
    WithWindow(run, [&](StatusWindow& window) {
        if (progress.phase != 0)
        {
            window.SetPhase(progress.phase, c_phaseCount, 0);
        }
        if (progress.percent != 0)
        {
            window.SetProgress(progress.percent);
        }
    });
}

void LogAndShowStatus(const RunContext& run, const std::wstring& text)
{
    run.logger.Info(text);
    WithWindow(run, [&](StatusWindow& window) { window.SetStatusText(text); });
}

// Returns false when the step makes the removal partial.
bool RunStep(const Step& step, const Removal& removal)
{
    ShowProgress(removal.run, step.progress);
    const std::wstring folder = step.folder(removal);
    if (!step.applies(removal, folder))
    {
        return true;
    }
    if (step.statusText != nullptr)
    {
        LogAndShowStatus(removal.run, step.statusText);
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

// Returns the choice for the settings, or the run's ending.
std::variant<UserSettings, Ending> Confirm(const RunContext& run)
{
    Sleep(c_pauseBeforeStartMilliseconds);
    if (run.runType == RunType::Silent)
    {
        return UserSettings::Keep;
    }
    return AskForConfirmation(run);
}

// Returns whether the removal may go on. The parent process may still run from the folder: it is about to exit.
bool TerminateProcessesIn(const std::wstring& installFolder, const RunContext& run, const std::wstring& ownPath)
{
    const auto parent = WaitForParentProcess(ownPath, installFolder);
    return CheckDirectoryLocked(installFolder, run.logger, run.runType == RunType::Silent, GetDialogOwner(run),
                                parent ? std::optional(parent->id) : std::nullopt);
}

// Stops the client, the services and other processes in the installation folder. Returns the run's ending when one of
// them cannot be stopped.
std::optional<Ending> StopProduct(const RunContext& run, const InstallFolder& installFolder,
                                  const std::wstring& ownPath)
{
    ShowProgress(run, {.phase = 1});
    LogAndShowStatus(run, L"Stopping Velmora...");
    const bool isClientStopped = StopRunningClient(run.logger);
    const HRESULT services =
        isClientStopped ? Retry(c_tenTimesPausingBetween, [&] { return StopServices(run.logger); }) : S_OK;
    if (!isClientStopped || services != S_OK)
    {
        return Ending(Outcome::ClientRunning, std::wstring(L"Is Client Stopped:") + (isClientStopped ? L"1" : L"0") +
                                                  L", Services Stopped Result: " + std::to_wstring(services));
    }
    // A protected folder is not deleted: its processes are left alone.
    if (!installFolder.isProtected && !TerminateProcessesIn(installFolder.path, run, ownPath))
    {
        return Ending(Outcome::FolderLocked);
    }
    return std::nullopt;
}

// Returns whether every step succeeded or only warned.
bool RemoveEverything(const Removal& removal)
{
    bool complete = true;
    for (const Step& step : c_steps)
    {
        complete = RunStep(step, removal) && complete;
    }
    ShowProgress(removal.run, {.phase = c_phaseCount, .percent = 100});
    LogAndShowStatus(removal.run, L"Uninstall Complete!");
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
    const bool removeUserSettings = std::get<UserSettings>(confirmed) == UserSettings::Remove;
    run.logger.Info(removeUserSettings ? L"Velmora will attempt to delete user data directories."
                                       : L"Velmora will leave user directories as-is.");
    if (auto ending = StopProduct(run, installFolder, ownPath))
    {
        return *std::move(ending);
    }
    const bool isComplete = RemoveEverything({run, installFolder, removeUserSettings});
    return Ending(isComplete ? Outcome::Removed : Outcome::PartiallyRemoved);
}

} // namespace Uninstaller
