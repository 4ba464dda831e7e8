#include "Uninstaller/Sequence.h"

#include "Uninstaller/ExitCode.h"
#include "support/common/Steps.h"
#include "support/unit/PathLimits.h"
#include "support/unit/SimulatedMachine.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// Whole runs on a machine in memory: what is removed, in which order, and what a failure means for the rest.
namespace
{

using namespace Uninstaller;
using namespace Testing;
using Lines = std::vector<std::string>;
using Things = std::set<std::string>;

std::string Info(std::string_view text)
{
    return std::string(c_infoTag) + SimulatedMachine::Expand(text);
}

const Lines c_lockCheck{Info("[ClientHelper] Checking if directory is locked: <Folder>"),
                        Info("[ClientHelper] No processes found locking the directory.")};
const Lines c_packageRemoval{
    Info("[Migrator] Searching for provisioned Velmora legacy packages..."),
    Info("[Migrator] Deprovisioned Velmora Package to prevent future auto-installs..."),
    Info("[Migrator] Searching for installed Velmora legacy packages..."),
    Info(R"([Migrator] Preparing to remove legacy Velmora installation at: C:\Apps\Velmora)"),
    Info("[Migrator] Successfully removed legacy Velmora installation!"),
};

enum class Settings
{
    Stay,
    Go,
};

// The log of a run in which everything is there and goes but for what fails, and nothing of the product runs; from the
// confirmation on.
Lines FullLog(Settings settings = Settings::Stay, std::optional<Step> failing = std::nullopt)
{
    Lines log = Lines{Info(settings == Settings::Go ? c_settingsGo : c_settingsStay), Info(c_stopping)} + c_lockCheck;
    for (const StepRow& row : Steps())
    {
        if (row.isOnlyWithSettings && settings == Settings::Stay)
        {
            continue;
        }
        if (!row.shown.empty())
        {
            log.push_back(Info(row.shown));
        }
        if (row.step == Step::LegacyPackage)
        {
            log = log + c_packageRemoval;
        }
        if (row.step == failing)
        {
            log.push_back(SimulatedMachine::Expand(row.failure) + " Reason: <80070005>");
        }
    }
    log.push_back(Info(c_complete));
    return log;
}

const Lines c_partial{std::string(c_errorTag) + std::string(c_notComplete), "|INFO|:    Requested to open log...",
                      "|INFO|:    Not running as GUI, ignoring..."};

// The log with `lines` in place of `old`; with `old` empty, before the line `before`.
Lines Replace(Lines log, const Lines& old, const Lines& lines, const std::string& before = {})
{
    auto place = old.empty() ? std::ranges::find(log, before) : std::ranges::search(log, old).begin();
    EXPECT_NE(place, log.end());
    place = log.erase(place, place + static_cast<std::ptrdiff_t>(old.size()));
    log.insert(place, lines.begin(), lines.end());
    return log;
}

class SequenceTest : public testing::Test
{
protected:
    SequenceTest() { machine.StopProduct(); }
    ~SequenceTest() override { EXPECT_EQ(machine.Leaks(), ""); }

    int Run(const std::wstring& arguments = L"-s")
    {
        before = machine.Everything();
        return machine.Run(arguments);
    }
    // A run whose user answers the dialogs so.
    int RunAnswered(std::initializer_list<SimulatedMachine::Answer> answers)
    {
        machine.answers = answers;
        return Run(L"-v");
    }
    // A program that runs from the installation folder.
    void AddLocker()
    {
        machine.processes.Add(
            {.id = 52, .name = L"helper.exe", .image = L"C:\\Program Files\\Velmora\\current\\helper.exe"});
    }

    // The log of the run from the confirmation on.
    Lines Log() const
    {
        const Lines& log = machine.Log();
        const auto start = std::ranges::find_if(log, [](const std::string& line) {
            return line.find("previous Velmora install directory") != line.npos ||
                   line.find("Found Velmora install entry") != line.npos;
        });
        return {start + 1, log.end()};
    }
    // The pauses, less the one at the start and those after the removal of each service.
    std::vector<DWORD> Retries() const
    {
        std::vector<DWORD> pauses = machine.clock.Sleeps();
        EXPECT_EQ(pauses.front(), 200U);
        pauses.erase(pauses.begin());
        std::erase(pauses, c_pauseAfterService);
        return pauses;
    }
    static constexpr DWORD c_pauseAfterService = 5000;

    // Everything of the product, as far as such a run is to remove it.
    Things Product(Settings settings = Settings::Stay) const
    {
        Things product;
        for (const StepRow& row : Steps())
        {
            for (const ProductPart& part : row.parts)
            {
                Things things;
                std::ranges::copy_if(before, std::inserter(things, things.end()),
                                     [&](const std::string& thing) { return SimulatedMachine::IsOf(part, thing); });
                EXPECT_FALSE(things.empty()) << part.what << " is not on the machine";
                if (settings == Settings::Go || (!part.isSetting && !row.isOnlyWithSettings))
                {
                    product.merge(things);
                }
            }
        }
        return product;
    }
    static Things Difference(const Things& all, const Things& without)
    {
        Things difference;
        std::ranges::set_difference(all, without, std::inserter(difference, difference.end()));
        return difference;
    }
    Things Gone() const { return Difference(before, machine.Everything()); }
    Things New() const { return Difference(machine.Everything(), before); }
    // The run ended before anything was removed, and kept its log.
    void ExpectNothingRemoved() const
    {
        EXPECT_EQ(Gone(), Things{});
        EXPECT_EQ(New(), Things{"file " + Narrow(SimulatedMachine::c_logPath)});
        EXPECT_EQ(machine.files.Scheduled(), std::vector{machine.ownPath});
    }

    SimulatedMachine machine;
    Things before;
};

const Things c_newPath{R"(path C:\A;C:\B;)"};

TEST_F(SequenceTest, Removes_everything_in_its_order_and_nothing_else)
{
    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_EQ(Log(), FullLog());
    EXPECT_EQ(machine.clock.Sleeps(), (std::vector<DWORD>{200, c_pauseAfterService, c_pauseAfterService}));
    EXPECT_EQ(Gone(), Product());
    EXPECT_EQ(New(), c_newPath);
    EXPECT_EQ(machine.files.Scheduled(), std::vector{machine.ownPath});
    EXPECT_EQ(machine.journal.CallsOf({"TaskDialogIndirect"}), Calls{}) << "a silent run asks";
}

TEST_F(SequenceTest, A_second_run_has_nothing_left_to_remove)
{
    Run();
    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    const Lines log = Log();
    EXPECT_EQ(Gone(), Things{});
    EXPECT_EQ(std::ranges::count(log, "|INFO|:    " + std::string(RowOf(Step::InstallFolder).shown)), 1);
    EXPECT_EQ(std::ranges::count(log, "|INFO|:    [ClientHelper] Directory does not exist, cannot be locked!"), 1);
    EXPECT_EQ(Retries(), std::vector<DWORD>{200}); // the start of the second run
}

TEST_F(SequenceTest, A_yes_removes_everything_but_the_settings)
{
    EXPECT_EQ(RunAnswered({{IDYES, 0, [this] { EXPECT_EQ(machine.clock.Sleeps(), std::vector<DWORD>{200}); }}}),
              EXIT_NO_ERROR);

    EXPECT_EQ(Log(), FullLog());
    EXPECT_EQ(Gone(), Product());
}

TEST_F(SequenceTest, The_settings_go_when_the_user_wants_it)
{
    EXPECT_EQ(RunAnswered({{IDYES, 1}}), EXIT_NO_ERROR);

    EXPECT_EQ(Log(), FullLog(Settings::Go));
    EXPECT_EQ(Gone(), Product(Settings::Go));
}

TEST_F(SequenceTest, A_cancelled_run_removes_nothing_but_its_log)
{
    for (const int button : {IDNO, IDCANCEL})
    {
        EXPECT_EQ(RunAnswered({{button, 1}}), EXIT_NO_ERROR);

        EXPECT_EQ(machine.Log().back(), "|INFO|:    User canceled the uninstaller.");
        EXPECT_EQ(machine.Everything(), before);
        EXPECT_EQ(machine.files.Scheduled().back(), machine.ownPath);
    }
    EXPECT_EQ(machine.com.All(), Calls{}) << "neither the firewall nor the package manager is asked";
}

TEST_F(SequenceTest, A_user_who_cannot_be_found_makes_the_result_partial_and_keeps_nothing_else_from_being_done)
{
    machine.processes.Remove(SimulatedMachine::c_explorer);

    EXPECT_EQ(RunAnswered({{IDYES, 1}}), EXIT_ERROR_PARTIAL_UNINSTALL);

    EXPECT_EQ(Log(), Replace(FullLog(Settings::Go),
                             {Info(RowOf(Step::VelmoraUserFolder).shown), Info(RowOf(Step::TessalineUserFolder).shown)},
                             {std::string(c_userCleanUpFailed) + "Unable to find a explorer.exe process running under "
                                                                 "the active console session!"}) +
                         c_partial);
}

TEST_F(SequenceTest, A_protected_installation_folder_is_never_touched_and_nothing_that_runs_from_it)
{
    machine.ClaimFolder(L"C:\\Program Files");
    machine.processes.Add({.id = 52, .name = L"helper.exe", .image = L"C:\\Program Files\\Other\\helper.exe"});

    EXPECT_EQ(Run(), EXIT_ERROR_PARTIAL_UNINSTALL);

    Lines expected = Replace(FullLog(Settings::Stay, Step::InstallFolder), c_lockCheck, {});
    std::ranges::replace(
        expected, R"(|ERROR|:   Unable to delete installation folder (C:\Program Files\Velmora\) Reason: <80070005>)",
        R"(|ERROR|:   Unable to delete installation folder (C:\Program Files\) Reason: <80070005>)");
    EXPECT_EQ(Log(), expected + c_partial);
    EXPECT_EQ(Retries(), std::vector<DWORD>{}) << "it was tried again";
    EXPECT_FALSE(Gone().contains(R"(file C:\Program Files\Velmora\Velmora.exe)"));
    EXPECT_TRUE(machine.processes.Find(52));
}

TEST_F(SequenceTest, A_long_installation_folder_is_examined_and_removed_like_any_other)
{
    const std::wstring folder = L"C:\\" + std::wstring(200, L'a') + L"\\" + std::wstring(200, L'b');
    machine.files.AddFile(folder + L"\\helper.exe");
    machine.processes.Add({.id = 52, .name = L"helper.exe", .image = folder + L"\\helper.exe"});
    machine.ClaimFolder(folder);
    const PathLimits limits;

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_FALSE(machine.processes.Find(52));
    EXPECT_FALSE(machine.files.Has(folder));
    EXPECT_TRUE(machine.files.Has(L"C:\\Program Files\\Velmora\\Velmora.exe")) << "which the record does not name";
}

TEST_F(SequenceTest, A_file_in_the_place_of_the_installation_folder_is_left_alone)
{
    machine.files.AddFile(L"C:\\Apps\\Velmora");
    machine.ClaimFolder(L"C:\\Apps\\Velmora");

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_TRUE(machine.files.Has(L"C:\\Apps\\Velmora"));
}

// A part of the product that does not go, while all others do.
struct Remnant
{
    StepRow row;
    ProductPart part;
};

void PrintTo(const Remnant& remnant, std::ostream* stream)
{
    *stream << remnant.part.what;
}

std::vector<Remnant> AllRemnants()
{
    std::vector<Remnant> remnants;
    for (const StepRow& row : Steps())
    {
        for (const ProductPart& part : row.parts)
        {
            if (row.step != Step::LegacyPackage) // whose failure is told in more lines
            {
                remnants.push_back({row, part});
            }
        }
    }
    return remnants;
}

class FailingStepTest : public SequenceTest, public testing::WithParamInterface<Remnant>
{
};

TEST_P(FailingStepTest, Is_reported_and_does_not_keep_the_others_from_being_done)
{
    const auto& [row, part] = GetParam();
    machine.Protect(part);

    EXPECT_EQ(RunAnswered({{IDYES, 1}}), row.makesPartial ? EXIT_ERROR_PARTIAL_UNINSTALL : EXIT_NO_ERROR);

    EXPECT_EQ(Log(), FullLog(Settings::Go, row.step) + (row.makesPartial ? c_partial : Lines()));
    EXPECT_EQ(Retries(), std::vector<DWORD>(static_cast<std::size_t>(row.pauses), 1000));
    EXPECT_EQ(machine.files.Has(SimulatedMachine::c_logPath), row.makesPartial);
    EXPECT_EQ(machine.files.Scheduled(), std::vector{machine.ownPath});
    // The makers are not told of it.
    EXPECT_TRUE(Sentry().events.empty());
}

INSTANTIATE_TEST_SUITE_P(SequenceTest, FailingStepTest, testing::ValuesIn(AllRemnants()));

TEST_F(SequenceTest, A_legacy_package_that_cannot_be_removed_is_tried_five_times_and_only_warns)
{
    machine.Protect(RowOf(Step::LegacyPackage).parts.back());
    machine.packages.provisioned.clear();

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    const Lines attempt{c_packageRemoval[0],
                        c_packageRemoval[2],
                        c_packageRemoval[3],
                        "|ERROR|:   [Migrator] Failed to remove legacy Velmora installation: -2147024891",
                        "|INFO|:    [Migrator] Attempting to remove for single user only...",
                        "|ERROR|:   [Migrator] Failed to remove legacy Velmora installation: -2147024891"};
    EXPECT_EQ(Log(), Replace(FullLog(Settings::Stay, Step::LegacyPackage), c_packageRemoval, 5 * attempt));
    EXPECT_EQ(machine.clock.Sleeps(), (std::vector<DWORD>{200, 5000, 5000, 5000, 5000, 5000, 5000}));
}

TEST_F(SequenceTest, A_legacy_package_that_goes_at_the_second_attempt_is_not_warned_of)
{
    machine.Protect(RowOf(Step::LegacyPackage).parts.back());
    machine.clock.At(10'300, [this] { machine.packages.installed.clear(); }); // after the services

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_EQ(machine.com.CallsOf({"FindPackages"}).size(), 2U);
    EXPECT_EQ(std::ranges::count_if(Log(), [](const std::string& line) { return line.find("Unable") != line.npos; }),
              0);
    EXPECT_EQ(machine.clock.Sleeps().size(), 4U);
}

TEST_F(SequenceTest, An_operation_that_succeeds_at_a_later_attempt_is_no_failure)
{
    machine.journal.Fail(R"(RegOpenKeyExW("SYSTEM\CurrentControlSet\Control\Session Manager\Environment", 0x20019))",
                         ERROR_ACCESS_DENIED, 9);

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_EQ(Log(), FullLog());
    EXPECT_EQ(Retries(), std::vector<DWORD>(9, 1000));
}

// A run with a window: what the user and the log get, in one order.
class SequenceWindowTest : public SequenceTest
{
protected:
    static std::string Logged(const std::string& line) { return "log(" + line + ")"; }
    static Lines Logged(Lines lines)
    {
        std::ranges::transform(lines, lines.begin(), [](const std::string& line) { return Logged(line); });
        return lines;
    }
    // From the first line after the confirmation on.
    Lines Seen() const
    {
        Lines seen =
            machine.journal.CallsOf({"log", "SendMessageW", "SetForegroundWindow", "MessageBoxW", "MoveFileExW"});
        const auto start =
            std::ranges::find_if(seen, [](const std::string& call) { return call.find("Velmora will ") != call.npos; });
        seen.erase(seen.begin(), start);
        return seen;
    }
    const std::string c_finish = "MoveFileExW(\"" + Narrow(SimulatedMachine::c_copyPath) + "\", null, 4)";
};

TEST_F(SequenceWindowTest, Shows_what_is_done_and_how_far_it_is)
{
    machine.answers = {{IDYES, 1}};

    EXPECT_EQ(Run(L""), EXIT_NO_ERROR);

    Lines expected{Logged(Info(c_settingsGo))};
    const auto step = [&](int percent, std::string_view text, bool isShown = true) {
        if (percent >= 0)
        {
            expected.push_back(SentProgress(percent));
        }
        if (!text.empty())
        {
            expected.push_back(Logged(Info(text)));
        }
        if (!text.empty() && isShown)
        {
            expected.push_back(SentText(std::string(text)));
        }
    };
    step(0, c_stopping);
    expected = expected + Logged(c_lockCheck);
    for (const StepRow& row : Steps())
    {
        step(row.progress, row.shown, row.step != Step::VelmoraUserFolder && row.step != Step::TessalineUserFolder);
    }
    expected = expected + Logged(c_packageRemoval);
    step(90, {});
    step(100, c_complete);
    expected = expected +
               ShownBox(MB_ICONINFORMATION, "Velmora Uninstalled", "Velmora has been successfully uninstalled.") +
               (Lines{c_finish, c_sentClose});
    EXPECT_EQ(Seen(), expected);
}

TEST_F(SequenceWindowTest, The_progress_does_not_depend_on_what_is_left_out)
{
    Run(L"-s");
    machine.journal.Take();
    machine.answers = {{IDYES, 0}};

    EXPECT_EQ(Run(L""), EXIT_NO_ERROR);

    Lines progress = Seen();
    std::erase_if(progress, [](const std::string& call) { return !call.starts_with("SendMessageW(window, 1026, "); });
    Lines expected{SentProgress(0)};
    for (const StepRow& row : Steps())
    {
        if (row.progress >= 0 && row.step != Step::TessalineUserFolder)
        {
            expected.push_back(SentProgress(row.progress));
        }
    }
    EXPECT_EQ(progress, expected + (Lines{SentProgress(90), SentProgress(100)}));
}

TEST_F(SequenceWindowTest, Asks_about_running_programs_in_front_of_the_window)
{
    AddLocker();
    machine.answers = {{IDYES}, {IDCANCEL}};

    Run(L"");

    EXPECT_EQ(machine.journal.CallsOf({"TaskDialogIndirect"}),
              (Calls{"TaskDialogIndirect(confirmation, window)", "TaskDialogIndirect(processes, window)"}));
}

// What a run does about a product that is running.
class RunningProductTest : public SequenceTest
{
protected:
    static inline const Lines c_start{Info(c_settingsStay), Info(c_stopping)};
    static inline const Lines c_listed{
        c_lockCheck[0], "|WARNING|: [ClientHelper] The following processes were found locking the directory:",
        "|WARNING|:                  - helper.exe (Pid: 52)"};
    static inline const Lines c_terminated{"|INFO|:    [ClientHelper] Attempting to terminate processes...",
                                           "|INFO|:    [ClientHelper] Terminating helper.exe...",
                                           "|INFO|:    [ClientHelper] Success!"};
};

TEST_F(RunningProductTest, Ends_its_client_then_its_services_and_then_removes_it)
{
    machine.processes.Add({.id = 40, .name = L"Velmora.exe"});
    machine.windows.Add({.handle = 0x20, .process = 40, .className = L"Velmora_NotifyIcon_Handler_1"});
    DWORD id = 1300;
    for (const wchar_t* const service : {L"OrvaneAuthService", L"VelmoraUpdaterService", L"Velmora Updater Service"})
    {
        machine.services.Add(service).RunsAs({.id = ++id}).Is(SERVICE_RUNNING).StopsAfter(400);
    }
    Lines changes;
    machine.journal.onCall = [&](const std::string& call) {
        if (call.starts_with("OpenServiceW"))
        {
            EXPECT_FALSE(machine.processes.Find(40)) << "a service was touched while the client ran";
        }
        if (call.starts_with("ControlServiceExW") || call.starts_with("DeleteService"))
        {
            EXPECT_TRUE(machine.files.Has(L"C:\\Program Files\\Velmora"));
            EXPECT_EQ(call.starts_with("Delete"), !machine.files.Has(L"C:\\Users\\Public\\Desktop\\Velmora.lnk"));
            changes.push_back(call.substr(0, call.find_first_of(",)")));
        }
    };

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_EQ(changes, (Lines{"ControlServiceExW(OrvaneAuthService", "ControlServiceExW(VelmoraUpdaterService",
                              "ControlServiceExW(Velmora Updater Service", "DeleteService(VelmoraUpdaterService",
                              "DeleteService(OrvaneAuthService"}));
    EXPECT_EQ(machine.clock.Sleeps(), (std::vector<DWORD>{200, 500, 1000, 500, 1000, 500, 1000, 5000, 5000}));
    EXPECT_EQ(Log(), Replace(FullLog(), {},
                             {"|INFO|:    [ClientHelper] Found running Velmora process! (40). Attempting to gracefully "
                              "stop it...",
                              "|INFO|:    [ClientHelper] Attempting to close Velmora via notify icon handler...",
                              "|INFO|:    [ClientHelper] Velmora process has terminated successfully."},
                             c_lockCheck[0]));
    EXPECT_TRUE(machine.services.Has(L"Velmora Updater Service"));
}

TEST_F(RunningProductTest, Removes_nothing_when_its_client_cannot_be_ended)
{
    machine.processes.Add({.id = 40, .name = L"Velmora.exe"});
    machine.journal.Fail("OpenProcess(0x1, 40)");
    AddLocker();

    EXPECT_EQ(Run(), EXIT_ERROR_CLIENT_RUNNING);

    EXPECT_EQ(machine.journal.CallsOf({"OpenSCManagerW", "OpenServiceW"}), Calls{});
    const std::string line = "Is Client Stopped:0, Services Stopped Result: 0";
    EXPECT_EQ(Log().back(), "|ERROR|:   " + line);
    EXPECT_EQ(machine.clock.Sleeps().size(), 21U);
    ExpectNothingRemoved();
    // The makers are not told of it.
    EXPECT_TRUE(Sentry().events.empty());
    EXPECT_EQ(Sentry().breadcrumbs.back().message, "Error:" + line);
}

TEST_F(RunningProductTest, Removes_nothing_when_its_services_cannot_be_dealt_with)
{
    AddLocker();
    machine.journal.onCall = [](const std::string& call) {
        if (call.starts_with("OpenSCManagerW"))
        {
            throw std::runtime_error("no memory");
        }
    };

    EXPECT_EQ(Run(), EXIT_ERROR_CLIENT_RUNNING);

    EXPECT_EQ(Log(), c_start +
                         Lines(10, "|ERROR|:   [ClientHelper] Unexpected error while stopping services: no memory") +
                         (Lines{"|ERROR|:   Is Client Stopped:1, Services Stopped Result: -2147418113"}));
    EXPECT_EQ(Retries(), std::vector<DWORD>(9, 1000));
    ExpectNothingRemoved();
}

TEST_F(RunningProductTest, Goes_on_when_its_services_can_be_dealt_with_in_the_end)
{
    unsigned calls = 0;
    machine.journal.onCall = [&](const std::string& call) {
        if (call.starts_with("OpenSCManagerW") && ++calls < 10)
        {
            throw std::runtime_error("no memory");
        }
    };

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_EQ(Retries(), std::vector<DWORD>(9, 1000));
}

TEST_F(RunningProductTest, Ends_what_runs_from_its_folder_without_asking_in_a_silent_run)
{
    AddLocker();

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_FALSE(machine.processes.Find(52));
    EXPECT_EQ(Log(), Replace(FullLog(), c_lockCheck,
                             c_listed +
                                 (Lines{"|INFO|:    [ClientHelper] Running as silent, cannot prompt user to terminate "
                                        "these processes, so terminating automatically..."}) +
                                 c_terminated));
}

TEST_F(RunningProductTest, Asks_about_what_runs_from_its_folder_when_its_services_have_stopped)
{
    AddLocker();
    const FakeService& service =
        machine.services.Add(L"OrvaneAuthService").RunsAs({.id = 1301}).Is(SERVICE_RUNNING).StopsAfter(400);

    EXPECT_EQ(RunAnswered({{IDYES},
                           {IDCONTINUE, 0,
                            [&] {
                                EXPECT_EQ(service.status.dwCurrentState, DWORD{SERVICE_STOPPED});
                                EXPECT_TRUE(machine.files.Has(L"C:\\Users\\Public\\Desktop\\Velmora.lnk"));
                            }}}),
              EXIT_NO_ERROR);

    EXPECT_EQ(machine.journal.CallsOf({"TaskDialogIndirect"}),
              (Calls{"TaskDialogIndirect(confirmation, null)", "TaskDialogIndirect(processes, null)"}));
    EXPECT_FALSE(machine.processes.Find(52));
    EXPECT_FALSE(machine.files.Has(L"C:\\Program Files\\Velmora"));
}

TEST_F(RunningProductTest, Removes_nothing_when_the_user_cancels_because_of_what_runs_from_its_folder)
{
    AddLocker();

    EXPECT_EQ(RunAnswered({{IDYES}, {IDCANCEL}}), EXIT_ERROR_DIRECTORY_LOCKED);

    EXPECT_EQ(Log(),
              c_start + c_listed +
                  (Lines{"|INFO|:    [ClientHelper] User canceled the uninstaller.", c_partial[1], c_partial[2]}));
    ExpectNothingRemoved();
}

// The first process still runs from the installation folder while it closes its crash reporting.
TEST_F(RunningProductTest, Waits_for_the_process_that_started_it_as_its_copy_and_does_not_end_it)
{
    for (const bool endsInTime : {true, false})
    {
        machine.processes.Add({.id = SimulatedMachine::c_starter,
                               .image = L"C:\\Program Files\\Velmora\\Velmora.Uninstaller.exe",
                               .created = 1,
                               .endsWhenWaitedFor = endsInTime});
        machine.files.AddFile(L"C:\\Program Files\\Velmora\\Velmora.exe");

        EXPECT_EQ(Run(), EXIT_NO_ERROR);

        EXPECT_EQ(machine.processes.Find(SimulatedMachine::c_starter).has_value(), !endsInTime);
        EXPECT_EQ(machine.journal.CallsOf({"WaitForSingleObject(70, 5000)"}).size(), endsInTime ? 1U : 2U);
        EXPECT_EQ(std::ranges::count(Log(), c_lockCheck[1]), endsInTime ? 1 : 2);
    }
}

} // namespace
