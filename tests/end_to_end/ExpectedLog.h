// The lines that a run writes, in their order: the one place in the end-to-end tests that holds them.
#pragma once

#include "support/common/Steps.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{
// The lines of runs that do not get to uninstalling. The process ID is "<pid>" in all of them.
std::vector<std::string> HelpLog();
std::vector<std::string> NotElevatedLog(std::string_view runType);
std::vector<std::string> CancelledLog(std::string_view runType);

// The lines of a run that goes on as its copy, which is started with that argument; or cannot be copied, for a reason
// in numbers.
std::vector<std::string> RelocationLog(std::string_view runType, std::wstring_view copy, std::string_view argument);
std::vector<std::string> CopyFailedLog(std::string_view runType, std::string_view reason);

// What a run says about a client: that it is asked to close, by so many windows; that it is ended, or cannot be because
// it is somebody else's.
std::vector<std::string> AskedToClose(unsigned long id, unsigned windows = 1);
std::vector<std::string> EndedByForce(unsigned long id);
std::vector<std::string> NotAllowedToEnd(unsigned long id);

// And about all clients together when some had to be ended: whether all of them have.
std::string ClientsEnded(bool all);

// A program that runs from the installation folder.
struct Locker
{
    unsigned long id = 0;
    std::string_view name;
};

// That a run looks for such programs, which it does again after each "Retry".
std::string CheckedFolder(std::string_view folder);

// What a run says about such programs, in ascending order of their numbers: what is found, and that it is ended.
std::vector<std::string> FoundLockers(const std::vector<Locker>& lockers);
std::vector<std::string> EndedLockers(const std::vector<Locker>& lockers);

// Both for a silent run, which does not ask.
std::vector<std::string> SilentlyEnded(const std::vector<Locker>& lockers);

// That the user presses "Retry".
std::vector<std::string> Retried();

// All lists, one after the other.
std::vector<std::string> Join(const std::vector<std::vector<std::string>>& lists);

// A single line.
std::string Info(std::string_view message);

class ExpectedLog
{
public:
    // The log of a silent run that finds the sample's own install record and in which everything succeeds, the removal
    // of the sample's legacy package too.
    ExpectedLog();

    // A run of another type: "Gui" or "Verbose".
    ExpectedLog& Runs(std::string_view type);

    // The user wants the settings to go too.
    ExpectedLog& RemovesSettings();

    // The run finds another record, or none that can be used.
    ExpectedLog& FindsRecord(std::wstring_view location);
    ExpectedLog& FindsNoRecord();

    // The folder of that record is one of those that are never deleted: nobody is looked for in it, and the step fails.
    ExpectedLog& RefusesFolder(std::wstring_view location);

    // What is said about clients, and in place of no program running from the installation folder.
    ExpectedLog& Clients(const std::vector<std::string>& lines);
    ExpectedLog& Lockers(const std::vector<std::string>& lines);

    // The run ends after what is said about clients, with nothing removed.
    ExpectedLog& EndsWithClients(const std::vector<std::string>& lines);

    // The step is not taken, so nothing is said about it.
    ExpectedLog& LeavesOut(Step step);

    // The run finds no legacy package.
    ExpectedLog& FindsNoPackage();

    // The step fails with an error number of Windows' or an HRESULT.
    ExpectedLog& Fails(Step step, unsigned long error);

    // The lines without their line feeds. The process ID is "<pid>".
    std::vector<std::string> Lines() const;

private:
    std::string m_runType = "Silent";
    bool m_removesSettings = false;
    bool m_refusesFolder = false;
    std::vector<std::string> m_record;
    std::string m_folder;
    std::vector<std::string> m_clients;
    std::optional<std::vector<std::string>> m_lockers;
    bool m_endsWithClients = false;
    bool m_hasPackage;
    std::set<Step> m_leftOut;
    std::map<Step, unsigned long> m_failures;
};
} // namespace Testing
