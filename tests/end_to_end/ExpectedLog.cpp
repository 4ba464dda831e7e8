#include "ExpectedLog.h"

#include "support/Names.h"
#include "support/SampleInstallation.h"
#include "support/Servers.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <utility>

namespace Testing
{
namespace
{
constexpr std::string_view c_info = "|INFO|:    ";
constexpr std::string_view c_warning = "|WARNING|: ";
constexpr std::string_view c_error = "|ERROR|:   ";
constexpr std::string_view c_packageRemoved = "[Migrator] Successfully removed legacy Velmora installation!";
constexpr std::string_view c_packageRemovalFailed = "[Migrator] Failed to remove legacy Velmora installation: ";
constexpr std::string_view c_removingForOneUser = "[Migrator] Attempting to remove for single user only...";

struct StepRow
{
    Step step;
    // Empty for a step that is not announced.
    std::string_view shown;
    std::string_view failure;
};

constexpr std::array<StepRow, 15> c_steps{{
    {Step::DesktopShortcut, "Deleting desktop shortcut...", "Unable to delete desktop shortcut."},
    {Step::StartMenuShortcut, "Deleting start menu shortcut...", "Unable to delete start menu shortcut."},
    {Step::UpdaterService, "Uninstalling updater service...", "Unable to uninstall updater service."},
    {Step::AuthService, "Uninstalling authorization service...", "Unable to uninstall authorization service."},
    {Step::MachinePath, "Removing from path...", "Unable to remove from path."},
    {Step::FirewallRule, "Deleting firewall rules...", "Unable to delete firewall rules."},
    {Step::StartupEntry, "Removing startup entry...", "Unable to remove startup entry."},
    {Step::Registration, "Deregistering application from system...", "Unable to deregister application from system."},
    {Step::UninstallEntry, "Removing uninstall entry...", "Unable to remove uninstall entry."},
    {Step::InstallFolder, "Deleting installation folder...", "Unable to delete installation folder"},
    {Step::AuthServiceProgramFolder, "Deleting OrvaneAuthService folders...",
     "Unable to delete PF OrvaneAuthService folder"},
    {Step::AuthServiceDataFolder, "", "Unable to delete PD OrvaneAuthService folder"},
    {Step::UpdaterFolder, "Deleting VelmoraUpdater folder...", "Unable to delete VelmoraUpdater folder"},
    {Step::UserFolders, "Attempting to clean up files for current user...", ""},
    {Step::LegacyPackage, "", "Unable to remove legacy packaged installation."},
}};

std::string Error(std::string_view message)
{
    return std::string(c_error) + std::string(message);
}

constexpr std::string_view c_differentUser =
    "[ClientHelper] This process is likely running under a different user account. We cannot close this without "
    "resorting to... undesirable methods. Restart the system to continue.";

constexpr std::string_view c_notAsked = "[ClientHelper] Running as silent, cannot prompt user to terminate these "
                                        "processes, so terminating automatically...";

std::string TriedToEnd(unsigned long id)
{
    return Info("[ClientHelper] Velmora process still running after graceful shutdown attempt. (" + std::to_string(id) +
                "). Attempting to force close...");
}

std::string DeletesUserFolder(std::wstring_view name)
{
    return Info("Attempting to delete '" + ToUtf8(Expand(L"<LocalAppData>\\") + std::wstring(name)) + "'...");
}

std::vector<std::string> Start(std::string_view runType)
{
    return {Info("Running the Velmora uninstaller (<pid>)..."), Info("Requested run type of " + std::string(runType))};
}

std::vector<std::string> Append(std::vector<std::string> lines, const std::vector<std::string>& more)
{
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

std::vector<std::string> CheckVersion(std::string_view runType)
{
    return Append(Start(runType), {Info("Checking to sure we are running on Windows 10.0.19041 or higher...")});
}

std::vector<std::string> CheckElevation(std::string_view runType)
{
    return Append(CheckVersion(runType), {Info("Checking to see if elevated...")});
}

std::string FoundRecord(std::wstring_view location, std::string_view version)
{
    return Info("Found Velmora install entry at '" + ToUtf8(location) + "', version " + std::string(version) + ".");
}

std::vector<std::string> BeginRelocation(std::string_view runType, std::wstring_view location = {})
{
    return Append(CheckElevation(runType),
                  {FoundRecord(location.empty() ? InstallFolder() + L"\\" : std::wstring(location), "2.8.1.2171"),
                   Info("Uninstaller is running inside installation directory. Copying to temporary location so we can "
                        "continue...")});
}

std::string StartText(std::wstring_view copy, std::string_view argument)
{
    return "\"" + ToUtf8(copy) + "\" process (with args of \"" + std::string(argument) + "\")";
}

// What a request to open the log leaves there: nothing of it is shown except in GUI runs.
std::vector<std::string> OpenLog(std::string_view runType)
{
    std::vector<std::string> lines{Info("Requested to open log...")};
    if (runType != "Gui")
    {
        lines.push_back(Info("Not running as GUI, ignoring..."));
    }
    return lines;
}
} // namespace

std::string Info(std::string_view message)
{
    return std::string(c_info) + std::string(message);
}

std::string Warning(std::string_view message)
{
    return std::string(c_warning) + std::string(message);
}

std::vector<std::string> Join(const std::vector<std::vector<std::string>>& lists)
{
    std::vector<std::string> all;
    for (const auto& list : lists)
    {
        all = Append(std::move(all), list);
    }
    return all;
}

std::vector<std::string> HelpLog()
{
    return Append(Start("Verbose"), {Info("-v  | --verbose            | Detailed uninstaller logging"),
                                     Info("-s  | --silent             | Don't show a status GUI"),
                                     Info("-g  | --gui                | Show a status GUI (default)"),
                                     Info("-h  | --help               | Display this help screen")});
}

std::vector<std::string> TooOldWindowsLog(std::string_view runType)
{
    return Append(CheckVersion(runType),
                  {Error("You need at least Windows 10 20H1 - May 2020 Update (10.0.19041) to continue.")});
}

std::vector<std::string> NotElevatedLog(std::string_view runType)
{
    return Append(CheckElevation(runType),
                  {Error("Please run the Velmora installer/uninstaller as an administrator to continue.")});
}

std::vector<std::string> SecondInstanceLog(std::string_view runType)
{
    return Append(CheckElevation(runType),
                  {Error("Only one instance of the Velmora installer/uninstaller can run at a time. Please make sure "
                         "no other instances are open and try again. If this fails to fix the problem, restart your "
                         "device.")});
}

std::vector<std::string> CancelledLog(std::string_view runType)
{
    return Append(CheckElevation(runType),
                  {FoundRecord(InstallFolder() + L"\\", "2.8.1.2171"), Info("User canceled the uninstaller.")});
}

std::vector<std::string> RelocationLog(std::string_view runType, std::wstring_view copy, std::string_view argument,
                                       std::wstring_view location)
{
    return Append(BeginRelocation(runType, location),
                  {Info("Starting " + StartText(copy, argument)),
                   Info("This process will now exit (without waiting for user feedback)"), Info("----------")});
}

std::vector<std::string> CopyFailedLog(std::string_view runType, std::string_view reason)
{
    return Append(Append(BeginRelocation(runType),
                         {Error("Unable to copy the Velmora Uninstaller to temporary directory. Please restart your "
                                "system and try again. Reason: " +
                                std::string(reason) + ".")}),
                  OpenLog(runType));
}

std::vector<std::string> StartFailedLog(std::string_view runType, std::wstring_view copy, std::string_view argument,
                                        std::string_view reason)
{
    return Append(
        Append(BeginRelocation(runType), {Info("Starting " + StartText(copy, argument)),
                                          Error("Uninstaller was unable to start " + StartText(copy, argument) +
                                                "! Reason: " + std::string(reason))}),
        OpenLog(runType));
}

std::vector<std::string> AskedToClose(unsigned long id, unsigned windows)
{
    std::vector<std::string> lines{Info("[ClientHelper] Found running Velmora process! (" + std::to_string(id) +
                                        "). Attempting to gracefully stop it...")};
    lines.insert(lines.end(), windows, Info("[ClientHelper] Attempting to close Velmora via notify icon handler..."));
    return lines;
}

std::vector<std::string> EndedByForce(unsigned long id)
{
    return {TriedToEnd(id), Info("[ClientHelper] Velmora process forcefully terminated.")};
}

std::vector<std::string> NotAllowedToEnd(unsigned long id)
{
    return {TriedToEnd(id), Warning(c_differentUser)};
}

std::string ClientsEnded(ClientsEnd end)
{
    switch (end)
    {
    case ClientsEnd::ByThemselves:
        return Info("[ClientHelper] Velmora process has terminated successfully.");
    case ClientsEnd::ByForce:
        return Info("[ClientHelper] Velmora process has been successfully terminated.");
    case ClientsEnd::Not:
        break;
    }
    return Error("[ClientHelper] Velmora process is still running after force termination attempt.");
}

std::string CheckedFolder(std::string_view folder)
{
    return Info("[ClientHelper] Checking if directory is locked: " + std::string(folder));
}

std::vector<std::string> FoundLockers(const std::vector<Locker>& lockers)
{
    std::vector<std::string> lines{Warning("[ClientHelper] The following processes were found locking the directory:")};
    for (const Locker& locker : lockers)
    {
        lines.push_back(
            Warning("                 - " + std::string(locker.name) + " (Pid: " + std::to_string(locker.id) + ")"));
    }
    return lines;
}

std::vector<std::string> EndedLockers(const std::vector<Locker>& lockers)
{
    std::vector<std::string> lines{Info("[ClientHelper] Attempting to terminate processes...")};
    for (const Locker& locker : lockers)
    {
        lines.push_back(Info("[ClientHelper] Terminating " + std::string(locker.name) + "..."));
        lines.push_back(Info("[ClientHelper] Success!"));
    }
    return lines;
}

std::vector<std::string> SilentlyEnded(const std::vector<Locker>& lockers)
{
    return Join({FoundLockers(lockers), {Info(c_notAsked)}, EndedLockers(lockers)});
}

std::vector<std::string> NotAllowedToEnd(const Locker& locker)
{
    return Join({FoundLockers({locker}),
                 {Info(c_notAsked), Info("[ClientHelper] Attempting to terminate processes..."),
                  Info("[ClientHelper] Terminating " + std::string(locker.name) + "..."), Warning(c_differentUser)}});
}

std::vector<std::string> Retried()
{
    return {Info("[ClientHelper] User prompted to retry...")};
}

MigratorLog& MigratorLog::Deprovisions()
{
    m_provisioned.push_back(Info("[Migrator] Deprovisioned Velmora Package to prevent future auto-installs..."));
    return *this;
}

MigratorLog& MigratorLog::FailsToDeprovision(std::string_view code)
{
    m_provisioned.push_back(Error("[Migrator] Failed to deprovisioned Velmora Package: " + std::string(code)));
    return *this;
}

MigratorLog& MigratorLog::BeginsRemoval(std::wstring_view folder)
{
    m_installed.push_back(Info("[Migrator] Preparing to remove legacy Velmora installation at: " + ToUtf8(folder)));
    return *this;
}

MigratorLog& MigratorLog::Removes(std::wstring_view folder)
{
    BeginsRemoval(folder);
    m_installed.push_back(Info(c_packageRemoved));
    return *this;
}

MigratorLog& MigratorLog::RemovesForOneUser(std::wstring_view folder, std::string_view code)
{
    BeginsRemoval(folder);
    m_installed.push_back(Error(std::string(c_packageRemovalFailed) + std::string(code)));
    m_installed.push_back(Info(c_removingForOneUser));
    m_installed.push_back(Info(c_packageRemoved));
    return *this;
}

MigratorLog& MigratorLog::FailsToRemove(std::wstring_view folder, std::string_view code, std::string_view secondCode)
{
    BeginsRemoval(folder);
    m_installed.push_back(Error(std::string(c_packageRemovalFailed) + std::string(code)));
    m_installed.push_back(Info(c_removingForOneUser));
    m_installed.push_back(Error(std::string(c_packageRemovalFailed) + std::string(secondCode)));
    return *this;
}

MigratorLog& MigratorLog::FailsToSearchProvisioned()
{
    m_provisioned.push_back(
        Error("[Migrator] Failed to search for provisioned Velmora legacy packages: Unknown Error"));
    return *this;
}

MigratorLog& MigratorLog::FailsToSearchInstalled()
{
    m_installed.push_back(Error("[Migrator] Failed to search for installed Velmora legacy packages: Unknown Error"));
    return *this;
}

std::vector<std::string> MigratorLog::Lines() const
{
    return Append(
        Append(Append({Info("[Migrator] Searching for provisioned Velmora legacy packages...")}, m_provisioned),
               {Info("[Migrator] Searching for installed Velmora legacy packages...")}),
        m_installed);
}

ExpectedLog& ExpectedLog::Runs(std::string_view type)
{
    m_runType = type;
    return *this;
}

ExpectedLog& ExpectedLog::RemovesSettings()
{
    m_removesSettings = true;
    m_userFolders = {DeletesUserFolder(L"Vel Mora"), DeletesUserFolder(L"Tessaline")};
    return *this;
}

ExpectedLog& ExpectedLog::FindsNoUser()
{
    m_findsUser = false;
    m_userFolders = {Warning("Something went wrong while trying to clean up user files: Unable to find a explorer.exe "
                             "process running under the active console session!")};
    return *this;
}

ExpectedLog& ExpectedLog::KeepsUserFolder(std::wstring_view name, unsigned long result)
{
    const std::string_view failure =
        name == L"Vel Mora" ? "Unable to delete Velmora folder. Other applications may accessing this folder."
                            : "Unable to delete Tessaline folder. Pellmark Studio may be running.";
    m_userFolders.insert(std::ranges::find(m_userFolders, DeletesUserFolder(name)) + 1,
                         Warning(std::string(failure) + " Reason: " + SystemText(result)));
    return *this;
}

ExpectedLog::ExpectedLog()
{
    FindsRecord(InstallFolder() + L"\\");
    m_migration =
        HasServers() ? MigratorLog().Deprovisions().Removes(LegacyPackageFolder()).Lines() : MigratorLog().Lines();
}

ExpectedLog& ExpectedLog::FindsRecord(std::wstring_view location, std::string_view version)
{
    m_record = {FoundRecord(location, version)};
    m_folder = ToUtf8(location);
    return *this;
}

ExpectedLog& ExpectedLog::FindsNoRecord()
{
    m_record = {
        Info("Did not find previous Velmora install entry. Will continue with assuming default install location."),
        Info("No previous Velmora install directory found, using default.")};
    m_folder = ToUtf8(Expand(LR"(<ProgramFiles>\Velmora\)"));
    return *this;
}

ExpectedLog& ExpectedLog::RefusesFolder(std::wstring_view location)
{
    m_refusesFolder = true;
    return FindsRecord(location).Fails(Step::InstallFolder, static_cast<unsigned long>(E_ACCESSDENIED), location);
}

ExpectedLog& ExpectedLog::Clients(const std::vector<std::string>& lines)
{
    m_clients = lines;
    return *this;
}

ExpectedLog& ExpectedLog::Lockers(const std::vector<std::string>& lines)
{
    m_lockers = lines;
    return *this;
}

ExpectedLog& ExpectedLog::EndsWithRunningClient()
{
    m_end = End::WithRunningClient;
    return *this;
}

ExpectedLog& ExpectedLog::EndsWithLockedFolder()
{
    m_end = End::WithLockedFolder;
    return *this;
}

ExpectedLog& ExpectedLog::LeavesOut(Step step)
{
    m_leftOut.insert(step);
    return *this;
}

ExpectedLog& ExpectedLog::FindsNoPackage()
{
    return Migrates(MigratorLog().Lines());
}

ExpectedLog& ExpectedLog::Migrates(std::vector<std::string> lines)
{
    m_migration = std::move(lines);
    return *this;
}

ExpectedLog& ExpectedLog::Fails(Step step, unsigned long result, std::wstring_view folder)
{
    m_failures.push_back({step, true, result, std::wstring(folder)});
    return *this;
}

ExpectedLog& ExpectedLog::Warns(Step step, unsigned long result, std::wstring_view folder)
{
    m_failures.push_back({step, false, result, std::wstring(folder)});
    return *this;
}

std::vector<std::string> ExpectedLog::Lines() const
{
    std::vector<std::string> lines = Append(CheckElevation(m_runType), m_record);
    lines.push_back(Info(m_removesSettings ? "Velmora will attempt to delete user data directories."
                                           : "Velmora will leave user directories as-is."));
    lines.push_back(Info("Stopping Velmora..."));
    lines = Append(std::move(lines), m_clients);
    if (m_end == End::WithRunningClient)
    {
        lines.push_back(Error("Is Client Stopped:0, Services Stopped Result: 0"));
        return lines;
    }
    if (!m_refusesFolder)
    {
        lines.push_back(CheckedFolder(m_folder));
        const std::string nothing = m_leftOut.contains(Step::InstallFolder)
                                        ? "[ClientHelper] Directory does not exist, cannot be locked!"
                                        : "[ClientHelper] No processes found locking the directory.";
        lines = Append(std::move(lines), m_lockers.value_or(std::vector{Info(nothing)}));
    }
    if (m_end == End::WithLockedFolder)
    {
        return Append(std::move(lines), OpenLog(m_runType));
    }
    for (const StepRow& row : c_steps)
    {
        const bool isLeftOut = m_leftOut.contains(row.step) || (row.step == Step::UserFolders && !m_removesSettings);
        if (!row.shown.empty() && !isLeftOut)
        {
            lines.push_back(Info(row.shown));
        }
        if (row.step == Step::UserFolders)
        {
            lines = Append(std::move(lines), m_userFolders);
        }
        if (row.step == Step::LegacyPackage)
        {
            lines = Append(std::move(lines), m_migration);
        }
        for (const Failure& failure : m_failures)
        {
            if (failure.step == row.step)
            {
                lines.push_back(std::string(failure.isError ? c_error : c_warning) + std::string(row.failure) +
                                (failure.folder.empty() ? "" : " (" + ToUtf8(failure.folder) + ")") +
                                " Reason: " + SystemText(failure.result));
            }
        }
    }
    lines.push_back(Info("Uninstall Complete!"));
    if (!m_findsUser || std::ranges::any_of(m_failures, &Failure::isError))
    {
        lines.push_back(Error("Velmora did not fully uninstall. Please check the logs for more information."));
        return Append(std::move(lines), OpenLog(m_runType));
    }
    return lines;
}
} // namespace Testing
