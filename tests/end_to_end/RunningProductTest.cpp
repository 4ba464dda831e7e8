// The tests' own means: the parts of the sample product that run do what their modes say, and what Wine lacks is
// supplied to a program from outside.
#include "support/RunningProduct.h"

#include "EndToEndTest.h"
#include "support/MachineState.h"
#include "support/Names.h"
#include "support/RunProgram.h"
#include "support/SampleInstallation.h"
#include "support/Services.h"
#include "support/StandIns.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{
namespace
{
constexpr std::chrono::milliseconds c_slowStopTime{c_slowStop};
constexpr std::chrono::milliseconds c_slowCloseTime{c_slowClose};
// Longer than anything that ends takes.
constexpr std::chrono::seconds c_limit{30};
// Longer than a slow service takes to stop: one that still runs then does not stop at all.
constexpr std::chrono::seconds c_longerThanSlow{4};

constexpr const wchar_t* c_reason = L"0x40050003";
constexpr DWORD c_reasonNumber = 0x40050003;
constexpr std::wstring_view c_comment = L"Stopping to perform a test.";

class RunningProductTest : public ::testing::Test
{
protected:
    ~RunningProductTest() override
    {
        for (const std::string& line : TakeLeftOver())
        {
            ADD_FAILURE() << line;
        }
        for (const std::wstring_view name : c_productServices)
        {
            EXPECT_FALSE(QueryService(std::wstring(name))) << ToUtf8(name) << " is left.";
        }
    }

    // Where a test can put programs.
    static std::wstring TestPath(const std::wstring& name) { return Expand(L"<Downloads>") + L"\\" + name; }
};

// ---- Services ------------------------------------------------------------------------------------------------------

class ServiceNameTest : public RunningProductTest, public ::testing::WithParamInterface<std::wstring_view>
{
};

TEST_P(ServiceNameTest, A_service_is_installed_runs_and_is_gone)
{
    std::optional<SampleService> service(std::in_place, GetParam(), ServiceMode::Ignores);
    EXPECT_EQ(service->Name(), GetParam());
    EXPECT_TRUE(service->IsInstalled());
    EXPECT_EQ(service->State(), SERVICE_STOPPED);
    EXPECT_FALSE(service->Process().IsRunning());
    service->Start();
    EXPECT_EQ(service->State(), SERVICE_RUNNING);
    EXPECT_TRUE(service->Process().IsRunning());
    EXPECT_NE(service->Process().Id(), 0U);
    EXPECT_EQ(service->Process().ExitCode(), std::nullopt);
    EXPECT_FALSE(ReadText(ServiceProgram(GetParam())).empty());
    const UniqueHandle process(OpenProcess(SYNCHRONIZE, FALSE, service->Process().Id()));
    service.reset();
    EXPECT_EQ(WaitForSingleObject(process.get(), 0), WAIT_OBJECT_0);
    EXPECT_FALSE(QueryService(std::wstring(GetParam())));
    EXPECT_TRUE(ReadText(ServiceProgram(GetParam())).empty());
}

INSTANTIATE_TEST_SUITE_P(Name, ServiceNameTest, ::testing::ValuesIn(c_productServices));

TEST_F(RunningProductTest, A_service_that_obeys_stops_at_once)
{
    SampleService service(c_authService, ServiceMode::Obeys);
    service.Start();
    EXPECT_EQ(service.AskToStop(), 0U);
    EXPECT_TRUE(service.Becomes(SERVICE_STOPPED));
    EXPECT_TRUE(service.Process().EndsWithin(c_limit));
    EXPECT_EQ(service.Process().ExitCode(), c_endedByItself);
    // And it can be started again.
    service.Start();
    EXPECT_EQ(service.State(), SERVICE_RUNNING);
}

TEST_F(RunningProductTest, A_slow_service_takes_three_seconds)
{
    SampleService service(c_authService, ServiceMode::TakesThreeSeconds);
    service.Start();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(service.AskToStop(), 0U);
    EXPECT_EQ(service.State(), SERVICE_STOP_PENDING);
    EXPECT_TRUE(service.Becomes(SERVICE_STOPPED));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, c_slowStopTime);
    EXPECT_TRUE(service.Process().EndsWithin(c_limit));
    EXPECT_EQ(service.Process().ExitCode(), c_endedByItself);
}

TEST_F(RunningProductTest, A_service_can_stay_pending)
{
    SampleService service(c_updaterService, ServiceMode::StaysPending);
    service.Start();
    EXPECT_EQ(service.AskToStop(), 0U);
    EXPECT_EQ(service.State(), SERVICE_STOP_PENDING);
    EXPECT_FALSE(service.Process().EndsWithin(c_longerThanSlow));
    EXPECT_EQ(service.State(), SERVICE_STOP_PENDING);
    EXPECT_EQ(service.AskToStop(), ERROR_SERVICE_CANNOT_ACCEPT_CTRL);
}

TEST_F(RunningProductTest, A_service_can_ignore_the_stop)
{
    SampleService service(c_updaterService, ServiceMode::Ignores);
    service.Start();
    EXPECT_EQ(service.AskToStop(), 0U);
    EXPECT_EQ(service.State(), SERVICE_RUNNING);
    EXPECT_FALSE(service.Process().EndsWithin(c_longerThanSlow));
    EXPECT_EQ(service.State(), SERVICE_RUNNING);
}

TEST_F(RunningProductTest, A_service_can_exit_without_reporting_it)
{
    SampleService service(c_updaterService, ServiceMode::ExitsUnreported);
    service.Start();
    EXPECT_EQ(service.AskToStop(), 0U);
    EXPECT_TRUE(service.Process().EndsWithin(c_limit));
    EXPECT_EQ(service.Process().ExitCode(), c_exitedUnreported);
}

TEST_F(RunningProductTest, A_service_can_refuse_the_stop)
{
    SampleService service(c_updaterService, ServiceMode::Refuses);
    service.Start();
    EXPECT_EQ(service.AskToStop(), ERROR_INVALID_SERVICE_CONTROL);
    EXPECT_EQ(service.State(), SERVICE_RUNNING);
    EXPECT_TRUE(service.Process().IsRunning());
}

TEST_F(RunningProductTest, A_deleted_service_leaves_the_machine_as_it_was)
{
    const MachineState before = MachineState::Capture();
    {
        SampleService service(c_authService, ServiceMode::Obeys, TestPath(L"a folder\\service.exe"));
        const MachineState installed = MachineState::Capture();
        const std::vector<std::string> differences = Compare(before, installed);
        EXPECT_TRUE(std::ranges::any_of(differences, [](const std::string& line) {
            return line.find(R"(came:    HKLM\SYSTEM\CurrentControlSet\Services\OrvaneAuthService: key)") == 0;
        }));
        service.Start();
        EXPECT_EQ(Compare(installed, MachineState::Capture()), std::vector<std::string>());
    }
    EXPECT_EQ(Compare(before, MachineState::Capture()), std::vector<std::string>());
}

TEST_F(RunningProductTest, A_service_that_somebody_else_has_deleted_is_gone)
{
    SampleService service(c_authService, ServiceMode::Obeys);
    ASSERT_TRUE(DeleteService(OpenServiceOf(service.Name(), DELETE).get()));
    EXPECT_FALSE(service.IsInstalled());
    EXPECT_EQ(service.State(), std::nullopt);
}

TEST_F(RunningProductTest, A_running_service_that_somebody_else_has_deleted_goes_with_its_process)
{
    SampleService service(c_authService, ServiceMode::Refuses);
    service.Start();
    ASSERT_TRUE(DeleteService(OpenServiceOf(service.Name(), DELETE).get()));
    EXPECT_TRUE(service.Process().IsRunning());
}

TEST_F(RunningProductTest, The_state_after_an_uninstall_has_the_services_that_stay)
{
    const MachineState before = MachineState::Capture();
    MachineState installed;
    MachineState rest;
    {
        const SampleService auth(c_authService, ServiceMode::Obeys, TestPath(L"service.exe"));
        const SampleService updater(c_updaterService, ServiceMode::Obeys, TestPath(L"service.exe"));
        const SampleService spaced(c_spacedUpdaterService, ServiceMode::Obeys, TestPath(L"service.exe"));
        installed = MachineState::Capture();
    }
    MachineState expected = before;
    expected.CopyWithParents(TestPath(L"service.exe"), installed);
    for (const auto& [path, entry] : installed.All())
    {
        if (IsAtOrBelow(path, LR"(HKLM\SYSTEM\CurrentControlSet\Services\Velmora Updater Service)"))
        {
            expected.Set(path, entry);
        }
    }
    EXPECT_EQ(Compare(expected, AfterUninstall(installed, false)), std::vector<std::string>());
}

// ---- Stand-ins -----------------------------------------------------------------------------------------------------

// What a program that was started as the uninstaller is does to a service.
class StandInsTest : public RunningProductTest
{
protected:
    // Runs the probe. Its exit code is made of an error number and a service's state.
    void Probe(const std::wstring& arguments, const RunOptions& options = {})
    {
        m_result = RunProgram(m_probe.Path(), arguments, options);
    }

    DWORD Error() const { return m_result.exitCode & 0xFFFFU; }
    DWORD State() const { return m_result.exitCode >> 16U; }
    const RunResult& Result() const { return m_result; }

    static std::wstring Stop(std::wstring_view name, const std::wstring& reason = c_reason,
                             std::wstring_view comment = c_comment)
    {
        return L"stop " + Quoted(name) + L" " + reason + L" " + Quoted(comment) + L" ";
    }

    static std::wstring Await(std::wstring_view name) { return L"await " + Quoted(name) + L" "; }
    static std::wstring Kill(std::wstring_view name) { return L"kill " + Quoted(name) + L" "; }
    static std::wstring Copied(std::wstring_view path) { return L"copied " + Quoted(path) + L" "; }

    // The program or its copy sent one control, with the reason and the comment, to that process.
    void ExpectRecord(DWORD serviceProcess, DWORD error, DWORD reason = c_reasonNumber,
                      std::wstring_view comment = c_comment) const
    {
        ASSERT_EQ(Result().serviceControls.has_value(), IsWine());
        if (!IsWine())
        {
            return;
        }
        ASSERT_EQ(Result().serviceControls->size(), 1U);
        const ServiceControl& control = Result().serviceControls->front();
        EXPECT_NE(control.sender, 0U);
        EXPECT_EQ(control.serviceProcess, serviceProcess);
        EXPECT_EQ(control.control, static_cast<DWORD>(SERVICE_CONTROL_STOP));
        EXPECT_EQ(control.infoLevel, static_cast<DWORD>(SERVICE_CONTROL_STATUS_REASON_INFO));
        EXPECT_EQ(control.reason, reason);
        EXPECT_EQ(ToUtf8(control.comment), ToUtf8(comment));
        EXPECT_EQ(control.error, error);
    }

private:
    static std::wstring Quoted(std::wstring_view text) { return L'"' + std::wstring(text) + L'"'; }

    PlacedProgram m_probe{L"Velmora.Sample.Probe.exe", TestPath(L"Velmora.Sample.Probe.exe")};
    RunResult m_result;
};

// What a control to stop with a reason gives.
struct ControlCase
{
    ServiceMode mode;
    DWORD error;
    // The state that comes back; nothing when it depends on who is faster.
    std::optional<DWORD> state;
};

void PrintTo(const ControlCase& one, std::ostream* stream)
{
    *stream << "service mode " << static_cast<int>(one.mode);
}

class ControlTest : public StandInsTest, public ::testing::WithParamInterface<ControlCase>
{
};

TEST_P(ControlTest, A_control_with_a_reason_gives_what_one_without_gives)
{
    SampleService service(c_authService, GetParam().mode);
    service.Start();
    Probe(Stop(c_authService));
    EXPECT_EQ(Error(), GetParam().error);
    EXPECT_EQ(GetParam().state.value_or(State()), State());
    ExpectRecord(service.Process().Id(), GetParam().error);
    if (IsWine())
    {
        EXPECT_EQ(Result().serviceControls->front().sender, Result().processId);
    }
}

INSTANTIATE_TEST_SUITE_P(Mode, ControlTest,
                         ::testing::Values(ControlCase{ServiceMode::Obeys, 0, std::nullopt},
                                           ControlCase{ServiceMode::TakesThreeSeconds, 0, SERVICE_STOP_PENDING},
                                           ControlCase{ServiceMode::StaysPending, 0, SERVICE_STOP_PENDING},
                                           ControlCase{ServiceMode::Ignores, 0, SERVICE_RUNNING},
                                           ControlCase{ServiceMode::ExitsUnreported, 0, std::nullopt},
                                           ControlCase{ServiceMode::Refuses, ERROR_INVALID_SERVICE_CONTROL,
                                                       SERVICE_RUNNING}));

TEST_F(StandInsTest, A_service_that_is_not_running_has_nothing_to_stop)
{
    const SampleService service(c_authService, ServiceMode::Obeys);
    Probe(Stop(c_authService));
    EXPECT_EQ(Error(), ERROR_SERVICE_NOT_ACTIVE);
    EXPECT_EQ(State(), SERVICE_STOPPED);
    ExpectRecord(0, ERROR_SERVICE_NOT_ACTIVE);
}

TEST_F(StandInsTest, A_reason_that_Windows_does_not_know_is_refused)
{
    SampleService service(c_authService, ServiceMode::Obeys);
    service.Start();
    // Neither planned nor unplanned.
    Probe(Stop(c_authService, L"0x00050003"));
    EXPECT_EQ(Error(), ERROR_INVALID_PARAMETER);
    ExpectRecord(service.Process().Id(), ERROR_INVALID_PARAMETER, 0x00050003);
    EXPECT_EQ(service.State(), SERVICE_RUNNING);
}

TEST_F(StandInsTest, A_comment_of_127_characters_is_the_longest)
{
    SampleService service(c_authService, ServiceMode::Ignores);
    service.Start();
    const std::wstring longest(127, L'é');
    Probe(Stop(c_authService, c_reason, longest));
    EXPECT_EQ(Error(), 0U);
    ExpectRecord(service.Process().Id(), 0, c_reasonNumber, longest);
    Probe(Stop(c_authService, c_reason, longest + L"é"));
    EXPECT_EQ(Error(), ERROR_INVALID_PARAMETER);
    ExpectRecord(service.Process().Id(), ERROR_INVALID_PARAMETER, c_reasonNumber, longest);
}

TEST_F(StandInsTest, Every_control_is_written_down_in_its_order)
{
    SampleService auth(c_authService, ServiceMode::Obeys);
    SampleService updater(c_updaterService, ServiceMode::TakesThreeSeconds);
    auth.Start();
    updater.Start();
    Probe(Stop(c_updaterService) + Await(c_updaterService) + Stop(c_authService) + Await(c_authService));
    EXPECT_EQ(Error(), 0U);
    EXPECT_EQ(State(), SERVICE_STOPPED);
    if (IsWine())
    {
        ASSERT_EQ(Result().serviceControls->size(), 2U);
        EXPECT_EQ(Result().serviceControls->at(0).serviceProcess, updater.Process().Id());
        EXPECT_EQ(Result().serviceControls->at(1).serviceProcess, auth.Process().Id());
    }
}

TEST_F(StandInsTest, A_copy_that_the_program_starts_has_them_too)
{
    SampleService service(c_authService, ServiceMode::Obeys);
    service.Start();
    const std::wstring copy = TestPath(L"copy.exe");
    Probe(Copied(copy) + Stop(c_authService) + Await(c_authService));
    EXPECT_EQ(Error(), 0U);
    EXPECT_EQ(State(), SERVICE_STOPPED);
    ExpectRecord(service.Process().Id(), 0);
    if (IsWine())
    {
        EXPECT_NE(Result().serviceControls->front().sender, Result().processId);
    }
    RemoveTree(copy);
}

TEST_F(StandInsTest, A_copy_of_a_copy_has_them_too)
{
    SampleService service(c_authService, ServiceMode::Ignores);
    service.Start();
    const std::wstring first = TestPath(L"first.exe");
    const std::wstring second = TestPath(L"second.exe");
    Probe(Copied(first) + Copied(second) + Stop(c_authService));
    EXPECT_EQ(Error(), 0U);
    ExpectRecord(service.Process().Id(), 0);
    RemoveTree(first);
    RemoveTree(second);
}

TEST_F(StandInsTest, A_service_that_exits_without_reporting_is_seen_to_have_stopped)
{
    SampleService service(c_updaterService, ServiceMode::ExitsUnreported);
    service.Start();
    Probe(Stop(c_updaterService) + Await(c_updaterService));
    EXPECT_EQ(Error(), 0U);
    EXPECT_EQ(State(), SERVICE_STOPPED);
    EXPECT_EQ(service.Process().ExitCode(), c_exitedUnreported);
}

TEST_F(StandInsTest, Services_whose_processes_are_ended_are_seen_to_have_stopped)
{
    SampleService auth(c_authService, ServiceMode::Ignores);
    SampleService updater(c_updaterService, ServiceMode::StaysPending);
    SampleService spaced(c_spacedUpdaterService, ServiceMode::Refuses);
    auth.Start();
    updater.Start();
    spaced.Start();
    EXPECT_EQ(updater.AskToStop(), 0U);
    Probe(Kill(c_authService) + Await(c_authService) + Kill(c_updaterService) + Await(c_updaterService) +
          Kill(c_spacedUpdaterService) + Await(c_spacedUpdaterService));
    EXPECT_EQ(Error(), 0U);
    for (const SampleService* service : {&auth, &updater, &spaced})
    {
        EXPECT_EQ(service->State(), SERVICE_STOPPED);
        EXPECT_EQ(service->Process().ExitCode(), 0U);
    }
}

TEST_F(StandInsTest, A_service_that_had_died_before_is_seen_to_have_stopped)
{
    SampleService service(c_authService, ServiceMode::Obeys);
    service.Start();
    service.Process().Terminate();
    Probe(Await(c_authService));
    EXPECT_EQ(Error(), 0U);
}

TEST_F(StandInsTest, Without_them_Wine_ends_a_program_that_sends_a_control_with_a_reason)
{
    if (!IsWine())
    {
        GTEST_SKIP() << "Windows has the function.";
    }
    constexpr DWORD c_wineStub = 0x80000100;
    SampleService service(c_authService, ServiceMode::Ignores);
    service.Start();
    Probe(Stop(c_authService), {.hasStandIns = false});
    EXPECT_EQ(Result().exitCode, c_wineStub);
    EXPECT_EQ(Result().serviceControls, std::nullopt);
}

class UninstallerWithStandInsTest : public EndToEndTest
{
};

TEST_F(UninstallerWithStandInsTest, The_uninstaller_and_its_copy_run_as_ever)
{
    LayDownSample();
    RunInstalled();
    ExpectRelocatedEnd(c_fullSuccess, RelocationLog("Silent", RelocatedCopy(), "-s"), ExpectedLog().Lines(),
                       RelocatedState());
    EXPECT_EQ(Result().serviceControls.has_value(), IsWine());
}

// ---- Clients and programs ------------------------------------------------------------------------------------------

struct OtherWindow
{
    HWND handle;
    std::wstring className;
};

// The top-level windows of a process that are its own and not Windows', by their classes.
std::vector<OtherWindow> WindowsOf(DWORD processId)
{
    std::vector<OtherWindow> windows;
    for (HWND window = GetTopWindow(nullptr); window != nullptr; window = GetWindow(window, GW_HWNDNEXT))
    {
        DWORD owner = 0;
        GetWindowThreadProcessId(window, &owner);
        wchar_t name[256]{};
        GetClassNameW(window, name, 256);
        if (owner == processId && std::wstring_view(name).find(L"elmora_") != std::wstring_view::npos)
        {
            windows.push_back({window, name});
        }
    }
    std::ranges::sort(windows, {}, &OtherWindow::className);
    return windows;
}

std::vector<std::string> ClassesOf(DWORD processId)
{
    std::vector<std::string> names;
    for (const OtherWindow& window : WindowsOf(processId))
    {
        names.push_back(ToUtf8(window.className));
    }
    return names;
}

void AskToClose(const OtherWindow& window)
{
    EXPECT_TRUE(PostMessageW(window.handle, WM_COMMAND, 50001, 0));
}

class RunningClientTest : public RunningProductTest
{
protected:
    static std::wstring ClientPath() { return InstallFolder() + LR"(\current\Velmora.exe)"; }
};

TEST_F(RunningClientTest, A_client_closes_when_it_is_asked)
{
    const SampleClient client(ClientPath(), ClientMode::Closes);
    EXPECT_TRUE(client.Process().IsRunning());
    const auto windows = WindowsOf(client.Process().Id());
    ASSERT_EQ(windows.size(), 1U);
    EXPECT_TRUE(windows.front().className.starts_with(L"Velmora_NotifyIcon_Handler_"));
    EXPECT_EQ(client.RequestsToClose(), 0);
    AskToClose(windows.front());
    EXPECT_TRUE(client.Process().EndsWithin(c_limit));
    EXPECT_EQ(client.Process().ExitCode(), c_endedByItself);
    EXPECT_EQ(client.RequestsToClose(), 1);
}

TEST_F(RunningClientTest, Only_the_right_command_closes_a_client)
{
    const SampleClient client(ClientPath(), ClientMode::Closes);
    const OtherWindow window = WindowsOf(client.Process().Id()).front();
    PostMessageW(window.handle, WM_COMMAND, 50000, 0);
    PostMessageW(window.handle, WM_COMMAND, 50001, 1);
    PostMessageW(window.handle, WM_USER, 50001, 0);
    // They are handled in this order, so none of those before has counted.
    AskToClose(window);
    EXPECT_TRUE(client.Process().EndsWithin(c_limit));
    EXPECT_EQ(client.RequestsToClose(), 1);
}

TEST_F(RunningClientTest, A_client_can_ignore_the_request)
{
    SampleClient client(ClientPath(), ClientMode::Ignores);
    const auto windows = WindowsOf(client.Process().Id());
    ASSERT_EQ(windows.size(), 1U);
    AskToClose(windows.front());
    AskToClose(windows.front());
    EXPECT_TRUE(client.GetsRequestsToClose(2));
    EXPECT_TRUE(client.Process().IsRunning());
    client.Process().Terminate();
    EXPECT_EQ(client.Process().ExitCode(), 0U);
}

TEST_F(RunningClientTest, A_client_can_have_no_window)
{
    const SampleClient client(ClientPath(), ClientMode::HasNoWindow);
    EXPECT_TRUE(client.Process().IsRunning());
    EXPECT_EQ(ClassesOf(client.Process().Id()), std::vector<std::string>());
}

TEST_F(RunningClientTest, A_client_can_have_windows_that_only_look_alike)
{
    const SampleClient client(ClientPath(), ClientMode::HasOtherWindows);
    EXPECT_EQ(ClassesOf(client.Process().Id()),
              (std::vector<std::string>{"OldVelmora_NotifyIcon_Handler_8b11", "Velmora_Main",
                                        "Velmora_NotifyIcon_Handler", "velmora_notifyicon_handler_case"}));
    // Asking one of them would be noticed.
    AskToClose(WindowsOf(client.Process().Id()).front());
    EXPECT_TRUE(client.Process().EndsWithin(c_limit));
    EXPECT_EQ(client.Process().ExitCode(), c_endedByItself);
    EXPECT_EQ(client.RequestsToClose(), 1);
}

TEST_F(RunningClientTest, A_client_with_two_windows_closes_when_both_are_asked)
{
    const SampleClient client(ClientPath(), ClientMode::HasTwoWindows);
    const auto windows = WindowsOf(client.Process().Id());
    ASSERT_EQ(windows.size(), 2U);
    for (const OtherWindow& window : windows)
    {
        EXPECT_TRUE(window.className.starts_with(L"Velmora_NotifyIcon_Handler_"));
    }
    AskToClose(windows[0]);
    AskToClose(windows[0]);
    EXPECT_TRUE(client.GetsRequestsToClose(2));
    EXPECT_TRUE(client.Process().IsRunning());
    AskToClose(windows[1]);
    EXPECT_TRUE(client.Process().EndsWithin(c_limit));
    EXPECT_EQ(client.Process().ExitCode(), c_endedByItself);
    EXPECT_EQ(client.RequestsToClose(), 3);
}

TEST_F(RunningClientTest, A_slow_client_takes_eight_seconds)
{
    const SampleClient client(ClientPath(), ClientMode::ClosesAfterEightSeconds);
    const auto begin = std::chrono::steady_clock::now();
    AskToClose(WindowsOf(client.Process().Id()).front());
    EXPECT_TRUE(client.Process().EndsWithin(c_limit));
    // Windows' timers may be early by a tick of its clock.
    EXPECT_GE(std::chrono::steady_clock::now() - begin, c_slowCloseTime - std::chrono::milliseconds(50));
    EXPECT_EQ(client.Process().ExitCode(), c_endedByItself);
}

TEST_F(RunningClientTest, Two_clients_of_the_same_path_run_side_by_side)
{
    const SampleClient first(ClientPath(), ClientMode::Ignores);
    {
        const SampleClient second(ClientPath(), ClientMode::Closes);
        EXPECT_NE(first.Process().Id(), second.Process().Id());
        EXPECT_TRUE(second.Process().IsRunning());
    }
    EXPECT_TRUE(first.Process().IsRunning());
    EXPECT_FALSE(ReadText(ClientPath()).empty());
}

TEST_F(RunningClientTest, A_program_runs_from_a_folder_of_its_own_and_leaves_nothing)
{
    const MachineState before = MachineState::Capture();
    {
        SampleProgram program(InstallFolder() + LR"(\tools\inner\Helper.exe)");
        EXPECT_TRUE(program.Process().IsRunning());
        EXPECT_EQ(ClassesOf(program.Process().Id()), std::vector<std::string>());
        program.Process().Terminate();
        EXPECT_EQ(program.Process().ExitCode(), 0U);
    }
    EXPECT_EQ(Compare(before, MachineState::Capture()), std::vector<std::string>());
}

TEST_F(RunningClientTest, A_program_can_be_started_by_another_spelling_of_its_path)
{
    const SampleProgram program(InstallFolder() + L"\\Helper.exe", InstallFolder() + LR"(\..\VELMORA\.\hELPER.EXE)");
    EXPECT_TRUE(program.Process().IsRunning());
}

TEST_F(RunningClientTest, A_program_that_cannot_be_started_is_reported)
{
    EXPECT_THROW(SampleProgram(InstallFolder() + L"\\Helper.exe", InstallFolder() + L"\\missing.exe"),
                 std::runtime_error);
    EXPECT_FALSE(std::ranges::any_of(ReadText(InstallFolder() + L"\\Helper.exe"), [](char) { return true; }));
}
} // namespace
} // namespace Testing
