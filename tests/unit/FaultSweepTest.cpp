#include "Uninstaller/ExitCode.h"
#include "support/unit/FailingFunctions.h"
#include "support/unit/FaultInjector.h"
#include "support/unit/SimulatedMachine.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <wil/result.h>
#include <winrt/base.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

// Whole runs of the program on a machine in memory, again and again, and in each of them another call of Windows fails.
namespace
{

using namespace Testing;
using Lines = std::vector<std::string>;
using Things = std::set<std::string>;

// What came of a run.
struct Outcome
{
    std::optional<int> code{}; // nothing when an exception left the program
    std::string exception{};
    Things before{};
    Things after{};
    Lines log{};
    ULONGLONG pauses = 0;
    std::string leaks{};
    FaultInjector faults;
};

// A kind of run.
struct Scenario
{
    const char* name;
    std::wstring arguments;
    std::function<void(SimulatedMachine& machine)> arrange;
    int code;                        // when nothing fails
    ULONGLONG pausesOfOtherKind = 0; // of the kind of run that a failure makes of it, if so
};

void PrintTo(const Scenario& scenario, std::ostream* stream)
{
    *stream << scenario.name;
}

const Scenario c_scenarios[] = {
    {"silent", L"-s", [](SimulatedMachine&) {}, Uninstaller::EXIT_NO_ERROR},
    {"gui", L"", [](SimulatedMachine&) {}, Uninstaller::EXIT_NO_ERROR},
    {"gui_partly_removed", L"-g", [](SimulatedMachine& machine) { machine.RemoveHalf(); },
     Uninstaller::EXIT_ERROR_PARTIAL_UNINSTALL},
};

// An uninstall entry that names what is never deleted, whatever fails.
const Scenario c_claims[] = {
    {"profile", L"-s", [](SimulatedMachine& machine) { machine.ClaimFolder(L"C:\\Users\\ann"); },
     Uninstaller::EXIT_ERROR_PARTIAL_UNINSTALL},
    {"program_files", L"-s", [](SimulatedMachine& machine) { machine.ClaimFolder(L"C:\\Program Files\\"); },
     Uninstaller::EXIT_ERROR_PARTIAL_UNINSTALL},
    {"volume", L"-s", [](SimulatedMachine& machine) { machine.ClaimFolder(L"C:\\"); },
     Uninstaller::EXIT_ERROR_PARTIAL_UNINSTALL},
};

const Scenario c_relocation{
    "relocation", L"-s", [](SimulatedMachine& machine) { machine.RunFromInstallFolder(); }, Uninstaller::EXIT_NO_ERROR,
    // Where it cannot be told whether the installation folder is one that is never deleted, nothing is copied.
    40'000};

Outcome RunWith(const Scenario& scenario, const Fault& fault, ULONGLONG longestPauses = 3'600'000)
{
    Outcome outcome{.faults = FaultInjector(fault)};
    {
        SimulatedMachine machine(outcome.faults);
        machine.longestPauses = longestPauses;
        scenario.arrange(machine);
        outcome.before = machine.Everything();
        {
            const FailingFunctions windows(outcome.faults);
            try
            {
                outcome.code = machine.Run(scenario.arguments);
            }
            catch (const winrt::hresult_error& error)
            {
                outcome.exception = "COM " + std::to_string(error.code());
            }
            catch (const std::exception& exception)
            {
                outcome.exception = exception.what();
            }
        }
        outcome.after = machine.Everything();
        outcome.log = machine.Log();
        outcome.pauses = machine.clock.Now();
        outcome.leaks = machine.Leaks();
    }
    return outcome;
}

bool Contains(const Lines& log, std::string_view text)
{
    return std::ranges::any_of(log, [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

// Whether a run that removes the settings, or one that keeps them, is to remove this.
bool IsToGo(const StepRow& row, const ProductPart& part, bool settingsGo)
{
    return settingsGo || (!part.isSetting && !row.isOnlyWithSettings);
}

// The lines of which the log has one when anything of a step is left.
std::vector<std::string> FailuresOf(const StepRow& row)
{
    // Of the one that names the installation folder what is before the name: not every machine has it in its place.
    std::vector<std::string> failures{SimulatedMachine::Expand(row.failure.substr(0, row.failure.find("<Folder>")))};
    if (!row.otherFailure.empty())
    {
        failures.emplace_back(row.otherFailure);
    }
    return failures;
}

// Everything that a run may leave or end: of the product, but nothing that is to be removed.
bool IsRunningProduct(const std::string& thing)
{
    static const Things processes{"process 40", "process 52", "process 70", "process 1301", "process 1302"};
    return processes.contains(thing);
}

// What a run may replace, or remove where it cannot tell whose it is.
bool IsInOwnTempFolder(const std::string& thing)
{
    return thing.starts_with("file C:\\Windows\\Temp\\Velmora\\");
}

// What one run is judged by: the fault that it was given, and what came of it. Every problem is added to the list.
class Judge
{
public:
    Judge(const Fault& fault, const Outcome& outcome, ULONGLONG longestPauses)
        : m_fault(fault),
          m_outcome(outcome),
          m_longestPauses(longestPauses)
    {}

    Lines Problems()
    {
        m_problems.clear();
        Check(m_outcome.leaks.empty(), "not closed:" + m_outcome.leaks);
        Check(m_outcome.pauses <= m_longestPauses, "pauses of " + std::to_string(m_outcome.pauses) + " ms");
        CheckBystanders();
        CheckNewThings();
        if (!m_outcome.code)
        {
            Check(MayThrow(), "an exception left the program: " + m_outcome.exception);
        }
        else if (HasBegunRemoving())
        {
            CheckRemoval(*m_outcome.code);
        }
        else
        {
            CheckRefusal(*m_outcome.code);
        }
        return m_problems;
    }

private:
    void Check(bool isRight, const std::string& problem)
    {
        if (!isRight)
        {
            m_problems.push_back(problem);
        }
    }

    bool Failed(std::string_view function) const { return m_outcome.faults.Function() == function; }
    bool IsAbout(std::string_view text) const { return m_outcome.faults.Subject().find(text) != std::string::npos; }
    bool IsAbsence() const { return m_fault.error == ERROR_FILE_NOT_FOUND || m_fault.error == ERROR_PATH_NOT_FOUND; }
    bool HasBegunRemoving() const { return Contains(m_outcome.log, Steps().front().shown); }
    bool SettingsGo() const { return Contains(m_outcome.log, "Velmora will attempt to delete user data directories."); }

    // The failures that are to end the run as an exception.
    bool MayThrow() const
    {
        return Failed("CoInitializeEx") || Failed("GetTokenInformation") || Failed("GetModuleFileNameW") ||
               (Failed("CloseHandle") && IsAbout("Global\\Velmora_Installer_Mutex")) ||
               (Failed("GetFileAttributesW") && IsAbout(".log") && !IsAbsence());
    }

    void CheckBystanders()
    {
        for (const std::string& thing : m_outcome.before)
        {
            if (m_outcome.after.contains(thing))
            {
                continue;
            }
            const bool isProduct =
                IsRunningProduct(thing) || IsInOwnTempFolder(thing) ||
                std::ranges::any_of(Steps(), [&](const StepRow& row) {
                    return std::ranges::any_of(row.parts, [&](const ProductPart& part) {
                        return SimulatedMachine::IsOf(part, thing) && IsToGo(row, part, SettingsGo());
                    });
                });
            Check(isProduct, "gone although it is not the product's: " + thing);
        }
    }

    void CheckNewThings()
    {
        const bool isSuccess = m_outcome.code == Uninstaller::EXIT_NO_ERROR;
        for (const std::string& thing : m_outcome.after)
        {
            const bool isLog = thing.ends_with(".log");
            const bool isReports = thing.find("\\Uninstaller\\Sentry") != std::string::npos;
            const bool isExpected =
                m_outcome.before.contains(thing) || thing == std::string("path ") + SimulatedMachine::c_pathAfter ||
                thing == R"(registry SOFTWARE\Microsoft\Windows\CurrentVersion\Explorer\StartupApproved\Run)" ||
                thing == R"(registry SOFTWARE\RegisteredApplications)" ||
                thing == R"(file C:\Windows\Temp\Velmora\Uninstaller\Velmora.Uninstaller.exe)" ||
                (isLog && (!isSuccess || IsRelocated() || (Failed("DeleteFileW") && IsAbout(".log")))) ||
                (isReports && (!m_outcome.code || IsAbout("\\Sentry")));
            Check(isExpected, "new: " + thing);
        }
    }

    bool IsRelocated() const { return Contains(m_outcome.log, "This process will now exit"); }

    // Whether a step is to take what it cannot see for gone.
    bool IsBlind(Step step, ProductPart::Kind kind) const
    {
        using enum ProductPart::Kind;
        if (Failed("OpenServiceW"))
        {
            return kind == Service;
        }
        if (Failed("GetFileAttributesW"))
        {
            return kind == Shortcut || step == Step::InstallFolder;
        }
        if (Failed("RegDeleteValueW") || Failed("RegDeleteTreeW"))
        {
            return m_fault.error == ERROR_FILE_NOT_FOUND;
        }
        if (Failed("CreateFileW"))
        {
            return IsAbsence() && kind == Folder;
        }
        return false;
    }

    // A run that has begun to remove does everything else, and tells of what is left.
    void CheckRemoval(int code)
    {
        bool isPartial = false;
        for (const StepRow& row : Steps())
        {
            const bool isReported = std::ranges::any_of(
                FailuresOf(row), [&](const std::string& failure) { return Contains(m_outcome.log, failure); });
            isPartial = isPartial || (isReported && row.makesPartial);
            for (const ProductPart& part : row.parts)
            {
                if (isReported || !IsToGo(row, part, SettingsGo()) || IsBlind(row.step, part.kind))
                {
                    continue;
                }
                for (const std::string& thing : m_outcome.after)
                {
                    Check(!SimulatedMachine::IsOf(part, thing) || !m_outcome.before.contains(thing),
                          "left without a word: " + thing);
                }
            }
        }
        Check(code == (isPartial ? Uninstaller::EXIT_ERROR_PARTIAL_UNINSTALL : Uninstaller::EXIT_NO_ERROR),
              "the code does not go with the log");
        Check(Contains(m_outcome.log, "Velmora did not fully uninstall.") == isPartial,
              "the end of the log does not go with the rest");
        Check(Contains(m_outcome.log, "|INFO|:    Uninstall Complete!"), "not all steps were done");
    }

    // A run that does not remove anything leaves everything, and tells why.
    void CheckRefusal(int code)
    {
        for (const std::string& thing : m_outcome.before)
        {
            Check(IsRunningProduct(thing) || IsInOwnTempFolder(thing) || m_outcome.after.contains(thing),
                  "removed by a run that refused: " + thing);
        }
        struct Reason
        {
            int code;
            std::string_view line;
            std::vector<std::string_view> functions;
        };
        static const Reason reasons[] = {
            {0, "This process will now exit", {}},
            {0, "Display this help screen", {"WideCharToMultiByte"}},
            {Uninstaller::EXIT_ERROR_WINDOWS_VERSION, "|ERROR|:   You need at least", {"VerifyVersionInfoW"}},
            {Uninstaller::EXIT_ERROR_ALREADY_RUNNING, "|ERROR|:   Only one instance", {"CreateMutexExW"}},
            {Uninstaller::EXIT_ERROR_CLIENT_RUNNING,
             "|ERROR|:   Is Client Stopped:0",
             {"CreateToolhelp32Snapshot", "OpenProcess", "TerminateProcess"}},
            {Uninstaller::EXIT_ERROR_COPY_TO_TEMP,
             "|ERROR|:   Unable to copy the Velmora Uninstaller",
             {"CopyFileExW", "CloseHandle", "CreateDirectoryW", "DeleteFileW", "GetFileAttributesW",
              "ConvertSidToStringSidW", "ConvertStringSecurityDescriptorToSecurityDescriptorW", "CreateFileW",
              "ReadFile", "GetVolumeInformationByHandleW", "GetFileInformationByHandle", "GetFileInformationByHandleEx",
              "GetSecurityInfo", "SetKernelObjectSecurity", "IsWellKnownSid"}},
            {Uninstaller::EXIT_ERROR_RUN_FROM_TEMP, "|ERROR|:   Uninstaller was unable to start", {"CreateProcessW"}},
            {Uninstaller::EXIT_ERROR_DIRECTORY_LOCKED, "Requested to open log...", {"OpenProcess", "TerminateProcess"}},
        };
        const bool isExplained = std::ranges::any_of(reasons, [&](const Reason& reason) {
            return code == reason.code && Contains(m_outcome.log, reason.line) &&
                   (reason.functions.empty() ||
                    std::ranges::any_of(reason.functions, [&](std::string_view function) { return Failed(function); }));
        });
        Check(isExplained, "nothing was removed, and it is not told why");
    }

    const Fault& m_fault;
    const Outcome& m_outcome;
    ULONGLONG m_longestPauses;
    Lines m_problems;
};

// One of the sets of functions that the sweep is divided into.
struct Group
{
    const char* name;
    std::vector<std::string_view> functions; // or their beginnings; none: those of no other group
};

void PrintTo(const Group& group, std::ostream* stream)
{
    *stream << group.name;
}

const Group c_groups[] = {
    {"texts", {"WideCharToMultiByte", "MultiByteToWideChar", "WriteFile", "WriteConsoleW", "GetStdHandle"}},
    {"opening", {"CreateFileW"}},
    {"folders",
     {"CloseHandle", "SHGetKnownFolderPath", "GetFinalPathNameByHandleW", "GetFileInformationByHandle",
      "GetFileAttributesW", "SetFileInformationByHandle", "DeleteFileW"}},
    {"processes",
     {"Process32", "QueryServiceStatusEx", "CloseServiceHandle", "Open", "QueryFullProcessImageNameW",
      "CreateToolhelp32Snapshot", "TerminateProcess", "GetProcessTimes", "WaitForSingleObject"}},
    {"rest", {}},
};

const Group c_all{"all", {""}};

const Group c_looking{"looking",
                      {"SHGetKnownFolderPath", "GetFinalPathNameByHandleW", "GetVolumePathNameW", "GetFileAttributesW",
                       "CreateFileW", "Reg"}};

bool IsOf(const Group& group, const std::string& function)
{
    const auto has = [&](const Group& some) {
        return std::ranges::any_of(some.functions,
                                   [&](std::string_view beginning) { return function.starts_with(beginning); });
    };
    return group.functions.empty() ? std::ranges::none_of(c_groups, has) : has(group);
}

// The faults to try on a run that makes these calls: at the first call for a thing all errors that it can give, once
// and for good; at later calls for the same thing one of them, once.
std::vector<Fault> FaultsFor(const std::vector<FaultInjector::Call>& calls, const Group& group)
{
    std::vector<Fault> faults;
    std::map<std::pair<std::string, std::string>, std::size_t> seen;
    for (std::size_t i = 0; i < calls.size(); ++i)
    {
        const auto& [function, subject, errors] = calls[i];
        if (!IsOf(group, function))
        {
            continue;
        }
        const std::size_t before = seen[{function, subject}]++;
        if (before != 0)
        {
            faults.push_back({i + 1, (*errors)[before % errors->size()], false});
            continue;
        }
        for (const long error : *errors)
        {
            faults.push_back({i + 1, error, false});
            faults.push_back({i + 1, error, true});
        }
    }
    return faults;
}

// The longest that a single failure can add to a run, in milliseconds: a client that is not asked to close or cannot be
// seen ends ten seconds later, or is waited for twice as long.
constexpr ULONGLONG c_longestDelay = 20'000;

// The longest that a failure for good can make a run, in milliseconds.
constexpr ULONGLONG c_longestRun = 200 + 1050   // the start
                                   + 20'000     // the client
                                   + 3 * 17'000 // the services
                                   + 2 * 10'000 // the shortcuts
                                   + 2 * 14'000 // the services' removal
                                   + 2 * 9'000  // the search path and the firewall
                                   + 3 * 10'000 // the registry
                                   + 10'000     // the installation folder
                                   + 3 * 9'000  // the services' folders
                                   + 2 * 10'000 // the user's folders
                                   + 5 * 25'000 // the package, and the client before it
                                   + 4 * 10'000 // the folder of the log and the reports
                                   + 9'000;     // the copy

class FaultSweepTest : public testing::TestWithParam<std::tuple<Scenario, Group>>
{
};

TEST_P(FaultSweepTest, Whatever_call_fails_the_run_ends_well)
{
    const auto& [scenario, group] = GetParam();
    RunWith(scenario, {}); // the C runtime looks functions up when it first needs them
    const Outcome plain = RunWith(scenario, {});
    ASSERT_EQ(plain.code, scenario.code);
    ASSERT_EQ(Judge({}, plain, plain.pauses).Problems(), Lines{});

    // Changing the import table takes longer than a whole run: it is done once, for something that does nothing.
    FaultInjector idle({});
    const FaultInjector::Inside quiet(idle);
    const FailingFunctions outermost(idle);

    const std::vector<Fault> faults = FaultsFor(plain.faults.Calls(), group);
    for (const Fault& fault : faults)
    {
        const ULONGLONG longest =
            fault.forGood ? c_longestRun : std::max(plain.pauses, scenario.pausesOfOtherKind) + c_longestDelay;
        const Outcome outcome = RunWith(scenario, fault, c_longestRun);
        const std::string name = "call " + std::to_string(fault.call) + ", " + outcome.faults.Function() + " (" +
                                 outcome.faults.Subject() + "), fails with " + std::to_string(fault.error) +
                                 (fault.forGood ? " for good" : " once");
        EXPECT_EQ(outcome.faults.Function(), plain.faults.Calls()[fault.call - 1].function) << "not the same run again";
        for (const std::string& problem : Judge(fault, outcome, longest).Problems())
        {
            ADD_FAILURE() << name << ": " << problem << " (code " << outcome.code.value_or(-1) << ')';
        }
    }
    EXPECT_FALSE(faults.empty());
    RecordProperty("faults", static_cast<int>(faults.size()));
    std::cout << faults.size() << " faults in " << plain.faults.Calls().size() << " calls\n";
}

std::string NameOf(const testing::TestParamInfo<std::tuple<Scenario, Group>>& parameters)
{
    return std::string(std::get<0>(parameters.param).name) + "_" + std::get<1>(parameters.param).name;
}

INSTANTIATE_TEST_SUITE_P(Uninstall, FaultSweepTest,
                         testing::Combine(testing::ValuesIn(c_scenarios), testing::ValuesIn(c_groups)), NameOf);
INSTANTIATE_TEST_SUITE_P(Protection, FaultSweepTest,
                         testing::Combine(testing::ValuesIn(c_claims), testing::Values(c_looking)), NameOf);
INSTANTIATE_TEST_SUITE_P(Relocation, FaultSweepTest,
                         testing::Combine(testing::Values(c_relocation), testing::Values(c_all)), NameOf);

} // namespace
