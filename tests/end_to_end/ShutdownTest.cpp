// A product that is running when it is uninstalled: its services, its clients, and programs from its folder.
#include "EndToEndTest.h"
#include "support/common/DirectoryLink.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/RunningProduct.h"
#include "support/end_to_end/StandIns.h"

#include <windows.h>

#include <tlhelp32.h>

#include <algorithm>
#include <array>
#include <list>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{
namespace
{
constexpr DWORD c_ended = 0;
constexpr DWORD c_stopReason = 0x40050003;
constexpr std::wstring_view c_stopComment = L"Stopping to perform install/uninstall.";

class ShutdownTest : public EndToEndTest
{
protected:
    ShutdownTest() { LayDownSample(); }

    static std::wstring Inside(const std::wstring& name) { return InstallFolder() + L"\\" + name; }
    static std::wstring Outside(const std::wstring& name) { return Expand(L"<Downloads>") + L"\\" + name; }

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
            EXPECT_EQ(ToUtf8(control.comment.data()), ToUtf8(c_stopComment));
        }
        EXPECT_EQ(asked, processes);
    }
};

// ---- Services ------------------------------------------------------------------------------------------------------

// What a service does when it is asked to stop, and how its process ends.
struct StoppedService
{
    ServiceMode mode;
    DWORD exitCode;
};

void PrintTo(const StoppedService& service, std::ostream* stream)
{
    *stream << "service mode " << static_cast<int>(service.mode);
}

class ServiceStopTest : public ShutdownTest, public ::testing::WithParamInterface<std::array<StoppedService, 3>>
{
};

TEST_P(ServiceStopTest, All_services_are_stopped_and_only_the_one_with_blanks_in_its_name_stays_installed)
{
    SampleService other(L"OrvaneAuthService2", ServiceMode::Obeys, Outside(L"service.exe"));
    other.Start();
    std::list<SampleService> services;
    std::vector<DWORD> processes;
    for (std::size_t i = 0; i < c_productServices.size(); ++i)
    {
        services.emplace_back(c_productServices.at(i), GetParam().at(i).mode).Start();
        processes.push_back(services.back().Process().Id());
    }
    Run();
    ExpectFullSuccess();
    ExpectStopRequests(processes);
    auto expected = GetParam().begin();
    for (const SampleService& service : services)
    {
        EXPECT_EQ(service.Process().ExitCode(), (expected++)->exitCode);
        EXPECT_EQ(service.State(),
                  service.Name() == c_spacedUpdaterService ? std::optional<DWORD>(SERVICE_STOPPED) : std::nullopt);
    }
    EXPECT_EQ(other.State(), SERVICE_RUNNING);
}

INSTANTIATE_TEST_SUITE_P(Modes, ServiceStopTest,
                         ::testing::Values(std::array{StoppedService{ServiceMode::Obeys, c_endedByItself},
                                                      StoppedService{ServiceMode::TakesThreeSeconds, c_endedByItself},
                                                      StoppedService{ServiceMode::Ignores, c_ended}},
                                           std::array{StoppedService{ServiceMode::StaysPending, c_ended},
                                                      StoppedService{ServiceMode::ExitsUnreported, c_exitedUnreported},
                                                      StoppedService{ServiceMode::Obeys, c_endedByItself}}));

TEST_F(ShutdownTest, The_copy_that_the_program_goes_on_as_stops_the_services_and_deletes_the_stopped_ones)
{
    SampleService running(c_authService, ServiceMode::Obeys);
    running.Start();
    const SampleService stopped(c_updaterService, ServiceMode::Obeys);
    RunInstalled();
    ExpectRelocatedEnd(c_fullSuccess, RelocationLog("Silent", RelocatedCopy(), "-s"), ExpectedLog().Lines(),
                       RelocatedState());
    ExpectStopRequests({running.Process().Id()});
    EXPECT_FALSE(running.IsInstalled());
    EXPECT_FALSE(stopped.IsInstalled());
}

// ---- Clients -------------------------------------------------------------------------------------------------------

TEST_F(ShutdownTest, Clients_are_asked_to_close_by_their_windows_and_ended_when_they_do_not)
{
    const std::wstring path = Inside(L"current\\Velmora.exe");
    const std::wstring otherPath = Inside(L"current\\Orvane.exe");
    const SampleClient closes(path, ClientMode::Closes);
    const SampleClient hasNone(path, ClientMode::HasNoWindow);
    const SampleClient hasTwo(otherPath, ClientMode::HasTwoWindows);
    const SampleClient hasOthers(otherPath, ClientMode::HasOtherWindows);
    const SampleClient elsewhere(Outside(L"Orvane.exe"), ClientMode::Ignores);
    // In other letter case it is somebody else's.
    const SampleClient bystander(Outside(L"velmora.exe"), ClientMode::Closes);

    Run();

    struct Expected
    {
        const SampleClient* client;
        unsigned windows;
        bool closes;
    };
    std::array clients{Expected{&closes, 1, true}, Expected{&hasNone, 0, false}, Expected{&hasTwo, 2, true},
                       Expected{&hasOthers, 0, false}, Expected{&elsewhere, 1, false}};
    std::ranges::sort(clients, {}, [](const Expected& one) { return one.client->Process().Id(); });
    std::vector<std::string> asked;
    std::vector<std::string> ended;
    for (const auto& [client, windows, closesItself] : clients)
    {
        asked = Join({asked, AskedToClose(client->Process().Id(), windows)});
        ended = closesItself ? ended : Join({ended, EndedByForce(client->Process().Id())});
        EXPECT_EQ(client->Process().ExitCode(), closesItself ? c_endedByItself : c_ended);
        EXPECT_EQ(client->RequestsToClose(), static_cast<LONG>(windows));
    }
    ExpectFullSuccess(ExpectedLog().Clients(Join({asked, ended, {ClientsEnded(true)}})));
    EXPECT_TRUE(bystander.Process().IsRunning());
    EXPECT_EQ(bystander.RequestsToClose(), 0);
}

TEST_F(ShutdownTest, Nothing_is_removed_under_a_client_that_cannot_be_ended)
{
    const SampleClient client(Inside(L"current\\Velmora.exe"), ClientMode::CannotBeEnded);
    SampleService service(c_authService, ServiceMode::Obeys);
    service.Start();
    const SampleProgram program(Inside(L"Helper.exe"));
    Run();
    const DWORD id = client.Process().Id();
    const ExpectedLog log =
        ExpectedLog().EndsWithClients(Join({AskedToClose(id), NotAllowedToEnd(id), {ClientsEnded(false)}}));
    // Nothing was removed, as in a run that is cancelled.
    ExpectEnd(c_clientRunning, log.Lines(), CancelledState(), true);
    ExpectStopRequests({});
    EXPECT_TRUE(client.Process().IsRunning());
    EXPECT_TRUE(program.Process().IsRunning());
    EXPECT_EQ(service.State(), SERVICE_RUNNING);
}

// ---- Programs that run from the folder -----------------------------------------------------------------------------

// The name of a process's file as snapshots show it: as it is on the disk, or as it was started.
std::string NameInSnapshot(const ProductProcess& process)
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

TEST_F(ShutdownTest, Programs_from_the_folder_are_ended_without_asking_in_a_silent_run)
{
    const std::wstring link = Outside(L"link");
    const std::size_t name = InstallFolder().rfind(L'\\');
    ASSERT_TRUE(CreateDirectoryLink(link, InstallFolder().substr(0, name)));
    const std::wstring longPath = Inside(LR"(a folder with a long name\helper with a long name.exe)");
    const PlacedProgram placed(L"Velmora.Sample.Client.exe", longPath);
    std::wstring shortPath(MAX_PATH, L'\0'); // the long one again where there are no short names
    shortPath.resize(GetShortPathNameW(longPath.c_str(), shortPath.data(), MAX_PATH));
    {
        const SampleProgram deep(Inside(LR"(tools\inner\deep.exe)"));
        const SampleProgram spelled(Inside(LR"(tools\again.exe)"), Inside(LR"(..\VELMORA\.\TOOLS\aGAIN.EXE)"));
        const SampleProgram linked(Inside(L"Helper.exe"), link + InstallFolder().substr(name) + L"\\Helper.exe");
        const SampleProgram shortened(longPath, shortPath);
        // A client under another name is a program like any other: it is not asked.
        const SampleClient renamed(Inside(L"Velmora-old.exe"), ClientMode::Closes);
        const SampleProgram sibling(InstallFolder() + LR"(2\Helper.exe)");
        const SampleProgram elsewhere(Outside(LR"(Velmora\Helper.exe)"));
        const std::string spelledName = NameInSnapshot(spelled.Process());
        const std::string shortenedName = NameInSnapshot(shortened.Process());

        Run();

        std::vector<Locker> lockers{{deep.Process().Id(), "deep.exe"},
                                    {spelled.Process().Id(), spelledName},
                                    {linked.Process().Id(), "Helper.exe"},
                                    {shortened.Process().Id(), shortenedName},
                                    {renamed.Process().Id(), "Velmora-old.exe"}};
        std::ranges::sort(lockers, {}, &Locker::id);
        ExpectFullSuccess(ExpectedLog().Lockers(SilentlyEnded(lockers)));
        for (const ProductProcess* process :
             {&deep.Process(), &spelled.Process(), &linked.Process(), &shortened.Process(), &renamed.Process()})
        {
            EXPECT_EQ(process->ExitCode(), c_ended);
        }
        EXPECT_EQ(renamed.RequestsToClose(), 0);
        EXPECT_TRUE(sibling.Process().IsRunning());
        EXPECT_TRUE(elsewhere.Process().IsRunning());
    }
    RemoveDirectoryLink(link);
}

TEST_F(ShutdownTest, The_user_tries_again_and_lets_a_program_be_ended)
{
    const SampleProgram program(Inside(L"Helper.exe"));
    const std::vector<Locker> lockers{{program.Process().Id(), "Helper.exe"}};
    const auto expectRunning = [&] { EXPECT_TRUE(program.Process().IsRunning()); };
    Run(L"-g", {.answers = {AnswerConfirmation(IDYES),
                            {.title = L"Velmora", .button = IDRETRY},
                            {.title = L"Velmora", .button = IDCONTINUE, .before = expectRunning},
                            FullSuccessMessage()}});
    ExpectFullSuccess(ExpectedLog().Runs("Gui").Lockers(Join({FoundLockers(lockers),
                                                              Retried(),
                                                              {CheckedFolder(ToUtf8(Inside(L"")))},
                                                              FoundLockers(lockers),
                                                              EndedLockers(lockers)})));
    EXPECT_EQ(program.Process().ExitCode(), c_ended);
}
} // namespace
} // namespace Testing
