#include "Uninstaller/Sequence.h"

#include "Installer/Common.h"
#include "Installer/Environment.h"
#include "Installer/Registry.h"
#include "Installer/Retry.h"
#include "Installer/Shortcuts.h"
#include "Uninstaller/EndOfProcess.h"

#include <windows.h>

#include <type_traits>

namespace Uninstaller
{

namespace
{

using namespace Installer;

constexpr DWORD c_pauseBeforeStartMilliseconds = 200;

// The entry as the installer wrote it: the reference is part of the text and is not expanded.
constexpr wchar_t c_pathEntry[] = L"%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib";

// What a failed step means for the result of the run.
enum class Failure
{
    MakesPartial, // logged as an error; the run ends with EXIT_ERROR_PARTIAL_UNINSTALL
    Warns,        // logged as a warning only
};

// Lets an operation of the library stand in the list below, whichever of its arguments it takes.
template <auto Operation>
HRESULT Do(const UninstallRun& run, const std::wstring& folder)
{
    if constexpr (std::is_invocable_v<decltype(Operation), const UninstallRun&>)
    {
        return Operation(run);
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

HRESULT DoNothing(const UninstallRun&)
{
    return S_OK;
}

HRESULT RemovePathEntry(const UninstallRun&)
{
    return RemoveFromMachinePath(c_pathEntry);
}

HRESULT Deregister(const UninstallRun& run)
{
    return DeregisterApplication(run.removeUserSettings);
}

// What an operation works on, where it is a folder: the failure names it.
std::wstring NoFolder(const UninstallRun&)
{
    return {};
}

std::wstring InstallFolder(const UninstallRun& run)
{
    return run.installFolder;
}

std::wstring AuthServiceProgramFolder(const UninstallRun&)
{
    return GetProgramFilesFolder() + L"OrvaneAuthService";
}

std::wstring AuthServiceDataFolder(const UninstallRun&)
{
    return GetProgramDataFolder() + L"OrvaneAuthService";
}

std::wstring UpdaterDataFolder(const UninstallRun&)
{
    return GetProgramDataFolder() + L"VelmoraUpdater";
}

// When a step is done; one that is left out is not shown either.
bool Always(const std::wstring&)
{
    return true;
}

bool IfFolderExists(const std::wstring& folder)
{
    return FolderExists(folder);
}

struct Step
{
    const wchar_t* shown = nullptr; // logged before the step; null for nothing
    HRESULT (*operation)(const UninstallRun& run, const std::wstring& folder) = Do<DoNothing>;
    RetryPolicy retry = c_once;       // on top of what the operation does by itself
    const wchar_t* failureText = L""; // logged when it fails; the folder and the system's reason follow
    Failure failure = Failure::MakesPartial;
    std::wstring (*folder)(const UninstallRun& run) = NoFolder;
    bool (*applies)(const std::wstring& folder) = Always;
};

// Everything that is removed, in this order.
// clang-format off
constexpr Step c_steps[] = {
    {L"Deleting desktop shortcut...",
        Do<DeleteDesktopShortcut>, c_once,
        L"Unable to delete desktop shortcut."},
    {L"Deleting start menu shortcut...",
        Do<DeleteStartMenuShortcut>, c_once,
        L"Unable to delete start menu shortcut."},
    {L"Removing from path...",
        Do<RemovePathEntry>, c_tenAttempts,
        L"Unable to remove from path."},
    {L"Removing startup entry...",
        Do<RemoveStartupEntry>, c_once,
        L"Unable to remove startup entry."},
    {L"Deregistering application from system...",
        Do<Deregister>, c_once,
        L"Unable to deregister application from system."},
    {L"Removing uninstall entry...",
        Do<RemoveUninstallEntry>, c_once,
        L"Unable to remove uninstall entry."},
    {L"Deleting installation folder...",
        Do<DeleteFolderWithRetry>, c_once,
        L"Unable to delete installation folder", Failure::MakesPartial, InstallFolder, IfFolderExists},
    {L"Deleting OrvaneAuthService folders...",
        Do<RemoveFolder>, c_tenAttempts,
        L"Unable to delete PF OrvaneAuthService folder", Failure::Warns, AuthServiceProgramFolder},
    {nullptr,
        Do<RemoveFolder>, c_tenAttempts,
        L"Unable to delete PD OrvaneAuthService folder", Failure::Warns, AuthServiceDataFolder},
    {L"Deleting VelmoraUpdater folder...",
        Do<RemoveFolder>, c_tenAttempts,
        L"Unable to delete VelmoraUpdater folder", Failure::Warns, UpdaterDataFolder},
    {L"Uninstall Complete!"},
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

// Does one step. Returns whether the result of the run is still a full one.
bool DoStep(const Step& step, const UninstallRun& run)
{
    const std::wstring folder = step.folder(run);
    if (!step.applies(folder))
    {
        return true;
    }
    if (step.shown != nullptr)
    {
        run.logger.Info(step.shown);
    }
    const HRESULT result = Retry(step.retry, [&] { return step.operation(run, folder); });
    if (result == S_OK)
    {
        return true;
    }
    if (step.failure == Failure::Warns)
    {
        run.logger.Warning(DescribeFailure(step, folder, result), false);
        return true;
    }
    run.logger.Error(DescribeFailure(step, folder, result), false);
    return false;
}

} // namespace

ExitCode UninstallProduct(const UninstallRun& run)
{
    Sleep(c_pauseBeforeStartMilliseconds);
    run.logger.Info(run.removeUserSettings ? L"Velmora will attempt to delete user data directories."
                                           : L"Velmora will leave user directories as-is.");
    bool complete = true;
    for (const Step& step : c_steps)
    {
        complete = DoStep(step, run) && complete;
    }

    if (!complete)
    {
        run.logger.Error(L"Velmora did not fully uninstall. Please check the logs for more information.", false);
    }
    finishProcess(run.logger.LogPath(), run.ownPath, complete);
    return complete ? EXIT_NO_ERROR : EXIT_ERROR_PARTIAL_UNINSTALL;
}

} // namespace Uninstaller
