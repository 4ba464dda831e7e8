// A product that is running when it is uninstalled: its services, its clients, and programs from its folder.
#include "EndToEndTest.h"
#include "LogViewer.h"
#include "support/DirectoryLink.h"
#include "support/Names.h"
#include "support/RunningProduct.h"
#include "support/Services.h"
#include "support/StandIns.h"

#include <windows.h>

#include <tlhelp32.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Testing
{
namespace
{
using std::chrono::milliseconds;

// What the program pauses for by design.
constexpr milliseconds c_atStart{200};
constexpr milliseconds c_poll{500};
constexpr milliseconds c_afterStop{1000};
constexpr milliseconds c_afterDeletion{5000};
constexpr milliseconds c_untilForce{10'000};

constexpr DWORD c_ended = 0;
constexpr DWORD c_stopReason = 0x40050003;
constexpr std::wstring_view c_stopComment = L"Stopping to perform install/uninstall.";

class ShutdownTest : public EndToEndTest
{
protected:
    ShutdownTest() { LayDownSample(); }

    static std::wstring ClientPath(const std::wstring& name = L"Velmora.exe")
    {
        return InstallFolder() + L"\\current\\" + name;
    }

    // Each of these processes was asked to stop, in that order, with the reason that goes to the system's event log.
    // Only Wine's stand-in sees the requests.
    void ExpectStopRequests(const std::vector<DWORD>& processes) const
    {
        ASSERT_EQ(Result().serviceControls.has_value(), IsWine());
        if (!IsWine())
        {
            return;
        }
        std::vector<DWORD> asked;
        for (const ServiceControl& control : *Result().serviceControls)
        {
            asked.push_back(control.serviceProcess);
            EXPECT_EQ(control.control, DWORD{SERVICE_CONTROL_STOP});
            EXPECT_EQ(control.infoLevel, DWORD{SERVICE_CONTROL_STATUS_REASON_INFO});
            EXPECT_EQ(control.reason, c_stopReason);
            EXPECT_EQ(ToUtf8(control.comment), ToUtf8(c_stopComment));
        }
        EXPECT_EQ(asked, processes);
    }

    // The run made the pauses that the design prescribes. How long it took on top of them is for people to read.
    void ExpectPauses(const std::vector<milliseconds>& pauses) const
    {
        milliseconds sum = c_atStart;
        for (const milliseconds pause : pauses)
        {
            sum += pause;
        }
        // Pauses may end early by a tick of Windows' clock each.
        EXPECT_GE(Result().duration, sum - (pauses.size() + 1) * milliseconds(16));
        std::cout << "Prescribed pauses: " << sum.count() << " ms; the run took " << Result().duration.count()
                  << " ms.\n";
    }

    // A run that removed nothing.
    MachineState NothingRemoved() const { return CancelledState(); }
};

// ---- Services ------------------------------------------------------------------------------------------------------

// How a service that is asked to stop ends, and what the run pauses for until it has.
struct StopCase
{
    ServiceMode mode;
    DWORD exitCode;
    milliseconds untilStopped;
};

void PrintTo(const StopCase& one, std::ostream* stream)
{
    *stream << "service mode " << static_cast<int>(one.mode);
}

class ServiceStopTest : public ShutdownTest, public ::testing::WithParamInterface<StopCase>
{
};

TEST_P(ServiceStopTest, A_running_service_is_stopped_and_deleted)
{
    SampleService service(c_updaterService, GetParam().mode);
    service.Start();
    Run();
    ExpectFullSuccess();
    ExpectStopRequests({service.Process().Id()});
    EXPECT_FALSE(service.IsInstalled());
    EXPECT_EQ(service.Process().ExitCode(), GetParam().exitCode);
    ExpectPauses({GetParam().untilStopped, c_afterStop, c_afterDeletion});
}

INSTANTIATE_TEST_SUITE_P(
    Mode, ServiceStopTest,
    ::testing::Values(StopCase{ServiceMode::Obeys, c_endedByItself, c_poll},
                      StopCase{ServiceMode::TakesThreeSeconds, c_endedByItself, milliseconds(c_slowStop)},
                      StopCase{ServiceMode::StaysPending, c_ended, c_untilForce},
                      StopCase{ServiceMode::Ignores, c_ended, c_untilForce},
                      StopCase{ServiceMode::ExitsUnreported, c_exitedUnreported, milliseconds(c_unreportedExit)}));

TEST_F(ShutdownTest, A_service_that_refuses_to_stop_is_ended_with_what_else_runs_from_the_folder)
{
    SampleService service(c_updaterService, ServiceMode::Refuses);
    service.Start();
    Run();
    const std::vector<Locker> lockers{{service.Process().Id(), "VelmoraUpdaterService.exe"}};
    ExpectFullSuccess(ExpectedLog().Lockers(SilentlyEnded(lockers)));
    ExpectStopRequests({service.Process().Id()});
    EXPECT_FALSE(service.IsInstalled());
    EXPECT_EQ(service.Process().ExitCode(), c_ended);
    ExpectPauses({c_afterDeletion});
}

TEST_F(ShutdownTest, All_services_are_stopped_and_the_one_with_blanks_in_its_name_stays_installed)
{
    SampleService auth(c_authService, ServiceMode::Obeys);
    SampleService updater(c_updaterService, ServiceMode::TakesThreeSeconds);
    SampleService spaced(c_spacedUpdaterService, ServiceMode::Ignores);
    for (SampleService* service : {&auth, &updater, &spaced})
    {
        service->Start();
    }
    Run();
    ExpectFullSuccess();
    ExpectStopRequests({auth.Process().Id(), updater.Process().Id(), spaced.Process().Id()});
    EXPECT_FALSE(auth.IsInstalled());
    EXPECT_FALSE(updater.IsInstalled());
    EXPECT_EQ(spaced.State(), SERVICE_STOPPED);
    EXPECT_EQ(auth.Process().ExitCode(), c_endedByItself);
    EXPECT_EQ(updater.Process().ExitCode(), c_endedByItself);
    EXPECT_EQ(spaced.Process().ExitCode(), c_ended);
    ExpectPauses({c_poll, c_afterStop, milliseconds(c_slowStop), c_afterStop, c_untilForce, c_afterStop,
                  c_afterDeletion, c_afterDeletion});
}

TEST_F(ShutdownTest, A_stopped_service_is_only_deleted)
{
    const SampleService service(c_authService, ServiceMode::Obeys);
    Run();
    ExpectFullSuccess();
    ExpectStopRequests({});
    EXPECT_FALSE(service.IsInstalled());
    ExpectPauses({c_afterDeletion});
}

class UndeletableServiceTest : public ShutdownTest,
                               public ::testing::WithParamInterface<std::pair<std::wstring_view, Step>>
{
};

TEST_P(UndeletableServiceTest, Makes_the_run_a_partial_one)
{
    const SampleService service(GetParam().first, ServiceMode::Obeys);
    // As long as somebody has it open, a service that is to be deleted stays, and nobody can delete it again.
    const UniqueService held = OpenServiceOf(service.Name(), DELETE);
    ASSERT_TRUE(DeleteService(held.get()));
    Run();
    MachineState expected = DeclaredState();
    expected.CopyTree(LR"(HKLM\SYSTEM\CurrentControlSet\Services\)" + service.Name(), After());
    ExpectPartialUninstall(ExpectedLog().Fails(GetParam().second, static_cast<unsigned long>(HRESULT_FROM_WIN32(
                                                                      ERROR_SERVICE_MARKED_FOR_DELETE))),
                           expected);
    ExpectPauses(std::vector(9, milliseconds(1000)));
}

INSTANTIATE_TEST_SUITE_P(Service, UndeletableServiceTest,
                         ::testing::Values(std::pair(c_updaterService, Step::UpdaterService),
                                           std::pair(c_authService, Step::AuthService)));

TEST_F(ShutdownTest, A_service_that_is_stopping_already_is_not_asked_again)
{
    SampleService service(c_authService, ServiceMode::StaysPending);
    service.Start();
    ASSERT_EQ(service.AskToStop(), DWORD{ERROR_SUCCESS});
    ASSERT_EQ(service.State(), SERVICE_STOP_PENDING);
    Run();
    ExpectFullSuccess();
    ExpectStopRequests({});
    EXPECT_FALSE(service.IsInstalled());
    EXPECT_EQ(service.Process().ExitCode(), c_ended);
    ExpectPauses({c_untilForce, c_afterStop, c_afterDeletion});
}

TEST_F(ShutdownTest, The_services_of_others_go_on)
{
    const std::wstring path = Expand(L"<Downloads>") + L"\\service.exe";
    SampleService other(L"OrvaneAuthService2", ServiceMode::Obeys, path);
    other.Start();
    Run();
    ExpectFullSuccess();
    EXPECT_EQ(other.State(), SERVICE_RUNNING);
}

TEST_F(ShutdownTest, The_copy_that_the_program_goes_on_as_stops_the_services)
{
    SampleService service(c_authService, ServiceMode::Obeys);
    service.Start();
    RunInstalled();
    ExpectRelocatedEnd(c_fullSuccess, RelocationLog("Silent", RelocatedCopy(), "-s"), ExpectedLog().Lines(),
                       RelocatedState());
    ExpectStopRequests({service.Process().Id()});
    EXPECT_FALSE(service.IsInstalled());
}

// ---- Clients -------------------------------------------------------------------------------------------------------

TEST_F(ShutdownTest, A_client_is_asked_to_close)
{
    const SampleClient client(ClientPath(), ClientMode::Closes);
    Run();
    ExpectFullSuccess(
        ExpectedLog().Clients(Join({AskedToClose(client.Process().Id()), {ClientsEnded(ClientsEnd::ByThemselves)}})));
    EXPECT_EQ(client.Process().ExitCode(), c_endedByItself);
    EXPECT_EQ(client.RequestsToClose(), 1);
}

TEST_F(ShutdownTest, Every_window_of_a_client_is_asked)
{
    const SampleClient client(ClientPath(L"Orvane.exe"), ClientMode::HasTwoWindows);
    Run();
    ExpectFullSuccess(ExpectedLog().Clients(
        Join({AskedToClose(client.Process().Id(), 2), {ClientsEnded(ClientsEnd::ByThemselves)}})));
    EXPECT_EQ(client.Process().ExitCode(), c_endedByItself);
    EXPECT_EQ(client.RequestsToClose(), 2);
}

TEST_F(ShutdownTest, A_client_that_closes_after_eight_seconds_is_waited_for)
{
    const SampleClient client(ClientPath(), ClientMode::ClosesAfterEightSeconds);
    Run();
    ExpectFullSuccess(
        ExpectedLog().Clients(Join({AskedToClose(client.Process().Id()), {ClientsEnded(ClientsEnd::ByThemselves)}})));
    EXPECT_EQ(client.Process().ExitCode(), c_endedByItself);
    ExpectPauses({milliseconds(c_slowClose)});
}

TEST_F(ShutdownTest, A_client_that_does_not_close_is_ended)
{
    const SampleClient client(ClientPath(), ClientMode::Ignores);
    Run();
    ExpectFullSuccess(ExpectedLog().Clients(Join({AskedToClose(client.Process().Id()),
                                                  EndedByForce(client.Process().Id()),
                                                  {ClientsEnded(ClientsEnd::ByForce)}})));
    EXPECT_EQ(client.Process().ExitCode(), c_ended);
    EXPECT_EQ(client.RequestsToClose(), 1);
    ExpectPauses({c_untilForce});
}

TEST_F(ShutdownTest, Clients_of_all_kinds_are_dealt_with_together)
{
    const SampleClient closes(ClientPath(), ClientMode::Closes);
    const SampleClient hasNone(ClientPath(), ClientMode::HasNoWindow);
    const SampleClient hasOthers(ClientPath(L"Orvane.exe"), ClientMode::HasOtherWindows);
    const SampleClient elsewhere(Expand(L"<Downloads>") + L"\\Orvane.exe", ClientMode::Ignores);
    // In other letter case it is somebody else's.
    const SampleClient bystander(Expand(L"<Downloads>") + L"\\velmora.exe", ClientMode::Closes);

    Run();

    std::map<DWORD, std::vector<std::string>> asked;
    std::map<DWORD, std::vector<std::string>> ended;
    asked[closes.Process().Id()] = AskedToClose(closes.Process().Id());
    for (const auto& [client, windows] :
         std::vector<std::pair<const SampleClient*, unsigned>>{{&hasNone, 0}, {&hasOthers, 0}, {&elsewhere, 1}})
    {
        asked[client->Process().Id()] = AskedToClose(client->Process().Id(), windows);
        ended[client->Process().Id()] = EndedByForce(client->Process().Id());
        EXPECT_EQ(client->Process().ExitCode(), c_ended);
    }
    std::vector<std::string> lines;
    for (const auto& byId : {asked, ended})
    {
        for (const auto& [id, more] : byId)
        {
            lines = Join({lines, more});
        }
    }
    ExpectFullSuccess(ExpectedLog().Clients(Join({lines, {ClientsEnded(ClientsEnd::ByForce)}})));
    EXPECT_EQ(closes.Process().ExitCode(), c_endedByItself);
    EXPECT_EQ(hasOthers.RequestsToClose(), 0);
    EXPECT_TRUE(bystander.Process().IsRunning());
    EXPECT_EQ(bystander.RequestsToClose(), 0);
    ExpectPauses({c_untilForce});
}

TEST_F(ShutdownTest, Nothing_is_removed_under_a_client_that_cannot_be_ended)
{
    SampleClient client(ClientPath(), ClientMode::CannotBeEnded);
    SampleService service(c_authService, ServiceMode::Obeys);
    service.Start();
    const SampleProgram program(InstallFolder() + L"\\Helper.exe");
    Run();
    const ExpectedLog log = ExpectedLog()
                                .Clients(Join({AskedToClose(client.Process().Id()),
                                               NotAllowedToEnd(client.Process().Id()),
                                               {ClientsEnded(ClientsEnd::Not)}}))
                                .EndsWithRunningClient();
    ExpectEnd(c_clientRunning, log.Lines(), NothingRemoved(), true);
    ExpectStopRequests({});
    EXPECT_TRUE(client.Process().IsRunning());
    EXPECT_TRUE(program.Process().IsRunning());
    EXPECT_EQ(service.State(), SERVICE_RUNNING);
    ExpectPauses({c_untilForce, c_untilForce});
}

// ---- Programs that run from the folder -----------------------------------------------------------------------------

class LockerTest : public ShutdownTest
{
protected:
    static std::wstring Inside(const std::wstring& name) { return InstallFolder() + L"\\" + name; }

    // The name of a process's file as snapshots show it: as it is on the disk, or as it was started.
    static std::string NameInSnapshot(const ProductProcess& process)
    {
        const UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
        PROCESSENTRY32W entry{};
        entry.dwSize = sizeof(entry);
        for (BOOL ok = Process32FirstW(snapshot.get(), &entry); ok; ok = Process32NextW(snapshot.get(), &entry))
        {
            if (entry.th32ProcessID == process.Id())
            {
                return ToUtf8(entry.szExeFile);
            }
        }
        return {};
    }

    // In ascending order of their numbers.
    static std::vector<Locker> Sorted(std::vector<Locker> lockers)
    {
        std::ranges::sort(lockers, {}, &Locker::id);
        return lockers;
    }

    // A run whose user confirms, and then answers what to do about the programs.
    void RunAnswered(const std::vector<DialogAnswer>& answers, const DialogAnswer& end = FullSuccessMessage())
    {
        std::vector<DialogAnswer> all{AnswerConfirmation(IDYES)};
        all.insert(all.end(), answers.begin(), answers.end());
        all.push_back(end);
        Run(L"-g", {.answers = all});
    }

    static DialogAnswer Answer(std::optional<int> button, const std::function<void()>& before = [] {})
    {
        return {.title = L"Velmora", .button = button, .before = before};
    }

    // The log of such a run.
    static ExpectedLog GuiLog(const std::vector<std::string>& lockers)
    {
        return ExpectedLog().Runs("Gui").Lockers(lockers);
    }
};

TEST_F(LockerTest, Programs_from_the_folder_are_ended_without_asking_in_a_silent_run)
{
    const SampleProgram top(Inside(L"Helper.exe"));
    const SampleProgram deep(Inside(LR"(tools\inner\deep.exe)"));
    const SampleProgram again(Inside(LR"(tools\again.exe)"), Inside(LR"(..\VELMORA\.\TOOLS\aGAIN.EXE)"));
    // A client under another name is a program like any other: it is not asked.
    const SampleClient renamed(Inside(L"Velmora-old.exe"), ClientMode::Closes);
    const SampleProgram sibling(InstallFolder() + LR"(2\Helper.exe)");
    const SampleProgram elsewhere(Expand(L"<Downloads>") + LR"(\Velmora\Helper.exe)");

    const std::string nameOfAgain = NameInSnapshot(again.Process());
    Run();

    const auto lockers = Sorted({{top.Process().Id(), "Helper.exe"},
                                 {deep.Process().Id(), "deep.exe"},
                                 {again.Process().Id(), nameOfAgain},
                                 {renamed.Process().Id(), "Velmora-old.exe"}});
    ExpectFullSuccess(ExpectedLog().Lockers(SilentlyEnded(lockers)));
    for (const ProductProcess* process : {&top.Process(), &deep.Process(), &again.Process(), &renamed.Process()})
    {
        EXPECT_EQ(process->ExitCode(), c_ended);
    }
    EXPECT_EQ(renamed.RequestsToClose(), 0);
    EXPECT_TRUE(sibling.Process().IsRunning());
    EXPECT_TRUE(elsewhere.Process().IsRunning());
}

TEST_F(LockerTest, A_program_that_was_started_through_a_link_is_found)
{
    const std::wstring link = Expand(L"<Downloads>") + L"\\link";
    const std::size_t name = InstallFolder().rfind(L'\\');
    ASSERT_TRUE(CreateDirectoryLink(link, InstallFolder().substr(0, name)));
    {
        const SampleProgram program(Inside(L"Helper.exe"), link + InstallFolder().substr(name) + L"\\Helper.exe");
        Run();
        ExpectFullSuccess(ExpectedLog().Lockers(SilentlyEnded({{program.Process().Id(), "Helper.exe"}})));
        EXPECT_EQ(program.Process().ExitCode(), c_ended);
    }
    RemoveDirectoryLink(link);
}

TEST_F(LockerTest, A_program_that_was_started_by_its_short_name_is_found)
{
    const std::wstring folder = Inside(L"a folder with a long name");
    const std::wstring path = folder + L"\\helper with a long name.exe";
    const PlacedProgram placed(L"Velmora.Sample.Program.exe", path);
    std::wstring shortPath(MAX_PATH, L'\0');
    shortPath.resize(GetShortPathNameW(path.c_str(), shortPath.data(), MAX_PATH));
    if (shortPath.empty() || shortPath == path)
    {
        GTEST_SKIP() << "There are no short names here.";
    }
    const SampleProgram program(path, shortPath);
    const std::string name = NameInSnapshot(program.Process());
    Run();
    ExpectFullSuccess(ExpectedLog().Lockers(SilentlyEnded({{program.Process().Id(), name}})));
    EXPECT_EQ(program.Process().ExitCode(), c_ended);
}

TEST_F(LockerTest, Nothing_is_removed_under_a_program_that_cannot_be_ended)
{
    const SampleProgram program(Inside(L"Helper.exe"), {}, ProgramMode::CannotBeEnded);
    Run();
    const std::vector<Locker> lockers{{program.Process().Id(), "Helper.exe"}};
    ExpectEnd(c_folderLocked, ExpectedLog().Lockers(NotAllowedToEnd(lockers.front())).EndsWithLockedFolder().Lines(),
              NothingRemoved(), true);
    EXPECT_TRUE(program.Process().IsRunning());
}

TEST_F(LockerTest, The_user_tries_again_and_lets_the_program_be_ended)
{
    const SampleProgram program(Inside(L"Helper.exe"));
    const std::vector<Locker> lockers{{program.Process().Id(), "Helper.exe"}};
    RunAnswered({Answer(IDRETRY), Answer(IDCONTINUE, [&] { EXPECT_TRUE(program.Process().IsRunning()); })});
    ExpectFullSuccess(GuiLog(Join({FoundLockers(lockers),
                                   Retried(),
                                   {CheckedFolder(ToUtf8(InstallFolder() + L"\\"))},
                                   FoundLockers(lockers),
                                   EndedLockers(lockers)})));
    EXPECT_EQ(program.Process().ExitCode(), c_ended);
}

TEST_F(LockerTest, The_user_closes_the_program_and_tries_again)
{
    SampleProgram program(Inside(L"Helper.exe"));
    const std::vector<Locker> lockers{{program.Process().Id(), "Helper.exe"}};
    RunAnswered({Answer(IDRETRY, [&] { program.Process().Terminate(); })});
    ExpectFullSuccess(GuiLog(Join({FoundLockers(lockers),
                                   Retried(),
                                   {CheckedFolder(ToUtf8(InstallFolder() + L"\\"))},
                                   {Info("[ClientHelper] No processes found locking the directory.")}})));
}

// The button that cancels, or the frame's close box.
class LockerCancelTest : public LockerTest, public ::testing::WithParamInterface<std::optional<int>>
{
};

TEST_P(LockerCancelTest, A_user_who_cancels_is_shown_the_log_and_nothing_is_removed)
{
    const LogViewer viewer;
    const SampleProgram program(Inside(L"Helper.exe"));
    RunAnswered(
        {Answer(GetParam())},
        ErrorMessage(L"Velmora Uninstaller Failed",
                     L"One or more processes are locking the Velmora installation directory. Please restart your "
                     L"system and try again. See the logs for more information."));
    const std::vector<Locker> lockers{{program.Process().Id(), "Helper.exe"}};
    ExpectEnd(c_folderLocked,
              GuiLog(Join({FoundLockers(lockers), {Info("[ClientHelper] User canceled the uninstaller.")}}))
                  .EndsWithLockedFolder()
                  .Lines(),
              NothingRemoved(), true);
    EXPECT_TRUE(program.Process().IsRunning());
    EXPECT_EQ(viewer.Read().file, ToUtf8(Result().logPath));
}

INSTANTIATE_TEST_SUITE_P(How, LockerCancelTest, ::testing::Values(std::optional(IDCANCEL), std::nullopt));
} // namespace
} // namespace Testing
