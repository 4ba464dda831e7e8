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

TEST_F(ShutdownTest, Services_are_stopped_and_all_but_the_one_with_blanks_in_its_name_deleted)
{
    SampleService other(L"OrvaneAuthService2", ServiceMode::Obeys, Outside(L"service.exe"));
    SampleService slow(c_authService, ServiceMode::TakesThreeSeconds);
    const SampleService stopped(c_updaterService, ServiceMode::Obeys);
    SampleService hangs(c_spacedUpdaterService, ServiceMode::Ignores);
    other.Start();
    slow.Start();
    hangs.Start();
    // It is the copy that does it.
    RunInstalled();
    ExpectRelocatedEnd(c_fullSuccess, RelocationLog("Silent", RelocatedCopy(), "-s"), ExpectedLog().Lines(),
                       RelocatedState());
    ExpectStopRequests({slow.Process().Id(), hangs.Process().Id()});
    EXPECT_EQ(slow.Process().ExitCode(), c_endedByItself);
    EXPECT_EQ(hangs.Process().ExitCode(), c_ended);
    EXPECT_FALSE(slow.IsInstalled());
    EXPECT_FALSE(stopped.IsInstalled());
    EXPECT_EQ(hangs.State(), SERVICE_STOPPED);
    EXPECT_EQ(other.State(), SERVICE_RUNNING);
}

TEST_F(ShutdownTest, Clients_are_asked_to_close_by_their_windows_and_ended_when_they_do_not)
{
    const std::wstring path = Inside(L"current\\Velmora.exe");
    const SampleClient closes(path, ClientMode::Closes);
    const SampleClient hasNone(path, ClientMode::HasNoWindow);
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
    std::array clients{Expected{&closes, 1, true}, Expected{&hasNone, 0, false}, Expected{&elsewhere, 1, false}};
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
    Run(L"-g", {.answers = {AnswerConfirmation(IDYES),
                            {.title = L"Velmora", .button = IDRETRY},
                            {.title = L"Velmora", .button = IDCONTINUE},
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
