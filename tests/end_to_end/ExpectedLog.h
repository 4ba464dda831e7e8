// The lines that a run writes, in their order: the one place in the end-to-end tests that holds them.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{
// The steps of a run that show up in the log.
enum class Step
{
    DesktopShortcut,
    StartMenuShortcut,
    MachinePath,
    StartupEntry,
    Registration,
    UninstallEntry,
    InstallFolder,
    AuthServiceProgramFolder,
    AuthServiceDataFolder,
    UpdaterFolder
};

// The lines of runs that do not get to uninstalling. The process ID is "<pid>" in all of them.
std::vector<std::string> HelpLog();
std::vector<std::string> TooOldWindowsLog(std::string_view runType);
std::vector<std::string> NotElevatedLog(std::string_view runType);
std::vector<std::string> SecondInstanceLog(std::string_view runType);
std::vector<std::string> CancelledLog(std::string_view runType);

// The lines of a run that goes on as its copy, which is started with that argument; or cannot be copied or started, for
// a reason in numbers.
std::vector<std::string> RelocationLog(std::string_view runType, std::wstring_view copy, std::string_view argument);
std::vector<std::string> CopyFailedLog(std::string_view runType, std::string_view reason);
std::vector<std::string> StartFailedLog(std::string_view runType, std::wstring_view copy, std::string_view argument,
                                        std::string_view reason);

class ExpectedLog
{
public:
    // The log of a silent run that finds the sample's own install record and in which everything succeeds.
    ExpectedLog();

    // A run of another type: "Gui" or "Verbose".
    ExpectedLog& Runs(std::string_view type);

    // The user wants the settings to go too.
    ExpectedLog& RemovesSettings();

    // The run finds another record, or none that can be used.
    ExpectedLog& FindsRecord(std::wstring_view location, std::string_view version = "2.8.1.2171");
    ExpectedLog& FindsNoRecord();

    // The step is not taken, so nothing is said about it.
    ExpectedLog& LeavesOut(Step step);

    // A step that makes the run a partial one fails with this result. The folder steps name the folder.
    ExpectedLog& Fails(Step step, unsigned long result, std::wstring_view folder = {});

    // A step that only warns fails with this result.
    ExpectedLog& Warns(Step step, unsigned long result, std::wstring_view folder);

    // The lines without their line feeds. The process ID is "<pid>".
    std::vector<std::string> Lines() const;

private:
    struct Failure
    {
        Step step;
        bool isError;
        unsigned long result;
        std::wstring folder;
    };

    std::string m_runType = "Silent";
    bool m_removesSettings = false;
    std::vector<std::string> m_record;
    std::set<Step> m_leftOut;
    std::vector<Failure> m_failures;
};
} // namespace Testing
