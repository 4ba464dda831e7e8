#include "ExpectedLog.h"

#include "support/end_to_end/Names.h"
#include "support/end_to_end/SampleInstallation.h"
#include "support/end_to_end/Servers.h"

#include <windows.h>

#include <utility>

namespace Testing
{
namespace
{
std::string Warning(std::string_view message)
{
    return std::string(c_warningTag) + std::string(message);
}

std::string Error(std::string_view message)
{
    return std::string(c_errorTag) + std::string(message);
}

// A text of a step with the folders of this machine and of the run.
std::string Fill(std::string_view text, std::string_view folder)
{
    return ReplaceAll(ToUtf8(Expand(std::wstring(text.begin(), text.end()))), "<Folder>", folder);
}

std::string TriedToEnd(unsigned long id)
{
    return Info("[ClientHelper] Velmora process still running after graceful shutdown attempt. (" + std::to_string(id) +
                "). Attempting to force close...");
}

std::vector<std::string> Begin(std::string_view runType)
{
    return {Info("Running the Velmora uninstaller (<pid>)..."), Info("Requested run type of " + std::string(runType))};
}

std::vector<std::string> CheckElevation(std::string_view runType)
{
    return Join({Begin(runType),
                 {Info("Checking to sure we are running on Windows 10.0.19041 or higher..."),
                  Info("Checking to see if elevated...")}});
}

std::string FoundRecord(std::wstring_view location)
{
    return Info("Found Velmora install entry at '" + ToUtf8(location) + "', version 2.8.1.2171.");
}

std::vector<std::string> BeginRelocation(std::string_view runType)
{
    return Join({CheckElevation(runType),
                 {FoundRecord(InstallFolder() + L"\\"),
                  Info("Uninstaller is running inside installation directory. Copying to temporary location so we can "
                       "continue...")}});
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

// The removal of the legacy package, or that there is none.
std::vector<std::string> Migration(bool hasPackage)
{
    const std::string searchedProvisioned = Info("[Migrator] Searching for provisioned Velmora legacy packages...");
    const std::string searchedInstalled = Info("[Migrator] Searching for installed Velmora legacy packages...");
    if (!hasPackage)
    {
        return {searchedProvisioned, searchedInstalled};
    }
    return {searchedProvisioned, Info("[Migrator] Deprovisioned Velmora Package to prevent future auto-installs..."),
            searchedInstalled,
            Info("[Migrator] Preparing to remove legacy Velmora installation at: " + ToUtf8(LegacyPackageFolder())),
            Info("[Migrator] Successfully removed legacy Velmora installation!")};
}
} // namespace

std::string Info(std::string_view message)
{
    return std::string(c_infoTag) + std::string(message);
}

std::vector<std::string> Join(const std::vector<std::vector<std::string>>& lists)
{
    std::vector<std::string> all;
    for (const auto& list : lists)
    {
        all.insert(all.end(), list.begin(), list.end());
    }
    return all;
}

std::vector<std::string> HelpLog()
{
    return Join({Begin("Verbose"),
                 {Info("-v  | --verbose            | Detailed uninstaller logging"),
                  Info("-s  | --silent             | Don't show a status GUI"),
                  Info("-g  | --gui                | Show a status GUI (default)"),
                  Info("-h  | --help               | Display this help screen")}});
}

std::vector<std::string> NotElevatedLog(std::string_view runType)
{
    return Join({CheckElevation(runType),
                 {Error("Please run the Velmora installer/uninstaller as an administrator to continue.")}});
}

std::vector<std::string> CancelledLog(std::string_view runType)
{
    return Join(
        {CheckElevation(runType), {FoundRecord(InstallFolder() + L"\\"), Info("User canceled the uninstaller.")}});
}

std::vector<std::string> RelocationLog(std::string_view runType, std::wstring_view copy, std::string_view argument)
{
    return Join({BeginRelocation(runType),
                 {Info("Starting \"" + ToUtf8(copy) + "\" process (with args of \"" + std::string(argument) + "\")"),
                  Info("This process will now exit (without waiting for user feedback)"), Info("----------")}});
}

std::vector<std::string> CopyFailedLog(std::string_view runType, std::string_view reason)
{
    return Join({BeginRelocation(runType),
                 {Error("Unable to copy the Velmora Uninstaller to temporary directory. Please restart your system and "
                        "try again. Reason: " +
                        std::string(reason) + ".")},
                 OpenLog(runType)});
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
    return {TriedToEnd(id),
            Warning("[ClientHelper] This process is likely running under a different user account. We cannot close "
                    "this without resorting to... undesirable methods. Restart the system to continue.")};
}

std::string ClientsEnded(bool all)
{
    return all ? Info("[ClientHelper] Velmora process has been successfully terminated.")
               : Error("[ClientHelper] Velmora process is still running after force termination attempt.");
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
    return Join({FoundLockers(lockers),
                 {Info("[ClientHelper] Running as silent, cannot prompt user to terminate these processes, so "
                       "terminating automatically...")},
                 EndedLockers(lockers)});
}

std::vector<std::string> Retried()
{
    return {Info("[ClientHelper] User prompted to retry...")};
}

ExpectedLog& ExpectedLog::Runs(std::string_view type)
{
    m_runType = type;
    return *this;
}

ExpectedLog& ExpectedLog::RemovesSettings()
{
    m_removesSettings = true;
    return *this;
}

ExpectedLog::ExpectedLog() : m_hasPackage(HasServers())
{
    FindsRecord(InstallFolder() + L"\\");
}

ExpectedLog& ExpectedLog::FindsRecord(std::wstring_view location)
{
    m_record = {FoundRecord(location)};
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
    return FindsRecord(location).Fails(Step::InstallFolder, ERROR_ACCESS_DENIED);
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

ExpectedLog& ExpectedLog::EndsWithClients(const std::vector<std::string>& lines)
{
    m_endsWithClients = true;
    return Clients(lines);
}

ExpectedLog& ExpectedLog::LeavesOut(Step step)
{
    m_leftOut.insert(step);
    return *this;
}

ExpectedLog& ExpectedLog::FindsNoPackage()
{
    m_hasPackage = false;
    return *this;
}

ExpectedLog& ExpectedLog::Fails(Step step, unsigned long error)
{
    m_failures[step] = static_cast<unsigned long>(HRESULT_FROM_WIN32(error));
    return *this;
}

std::vector<std::string> ExpectedLog::Lines() const
{
    std::vector<std::string> lines = Join({CheckElevation(m_runType),
                                           m_record,
                                           {Info(m_removesSettings ? c_settingsGo : c_settingsStay), Info(c_stopping)},
                                           m_clients});
    if (m_endsWithClients)
    {
        return Join({lines, {Error("Is Client Stopped:0, Services Stopped Result: 0")}});
    }
    if (!m_refusesFolder)
    {
        const std::string nothing = m_leftOut.contains(Step::InstallFolder)
                                        ? "[ClientHelper] Directory does not exist, cannot be locked!"
                                        : "[ClientHelper] No processes found locking the directory.";
        lines = Join({lines, {CheckedFolder(m_folder)}, m_lockers.value_or(std::vector{Info(nothing)})});
    }
    bool isPartial = false;
    for (const StepRow& row : Steps())
    {
        if (!row.shown.empty() && !m_leftOut.contains(row.step) && (m_removesSettings || !row.isOnlyWithSettings))
        {
            lines.push_back(Info(Fill(row.shown, m_folder)));
        }
        if (row.step == Step::LegacyPackage)
        {
            lines = Join({lines, Migration(m_hasPackage)});
        }
        if (const auto failure = m_failures.find(row.step); failure != m_failures.end())
        {
            lines.push_back(Fill(row.failure, m_folder) + " Reason: " + SystemText(failure->second));
            isPartial = isPartial || row.makesPartial;
        }
    }
    lines.push_back(Info(c_complete));
    return isPartial ? Join({lines, {Error(c_notComplete)}, OpenLog(m_runType)}) : lines;
}
} // namespace Testing
