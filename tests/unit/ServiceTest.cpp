#include "Installer/Service.h"

#include "support/unit/FakeServiceManager.h"
#include "support/unit/ProcessesTest.h"

#include <windows.h>

#include <winsvc.h>

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using Failures = std::vector<FailureLog::Entry>;

// The pieces that the calls for the service "Spooler" are made of.
const std::string c_connect = "OpenSCManagerW(null, null, 0x1)";
const std::string c_openToAsk = "OpenServiceW(manager, \"Spooler\", 0x4)";
const std::string c_openToStop = "OpenServiceW(manager, \"Spooler\", 0x24)";
const std::string c_openToDelete = "OpenServiceW(manager, \"Spooler\", 0x10000)";
const std::string c_query = "QueryServiceStatusEx(Spooler)";
const std::string c_control = "ControlServiceExW(Spooler, 1, 0x40050003, \"Stopping to perform install/uninstall.\")";
const std::string c_delete = "DeleteService(Spooler)";
const Calls c_poll{"Sleep(500)", c_query};
const std::string c_settle = "Sleep(1000)";
const std::string c_openProcess = "OpenProcess(0x1, 1234)";
const Calls c_kill{c_openProcess, "TerminateProcess(1234, 0)", "CloseHandle(1234)"};
const std::string c_disconnect = "CloseServiceHandle(manager)";
const Calls c_close{"CloseServiceHandle(Spooler)", c_disconnect};

const Calls c_openAndQuery{c_connect, c_openToStop, c_query};
const Calls c_request = c_openAndQuery + c_control;

// A machine with a service "Spooler" that runs as process 1234 and does not stop unless a test says so.
class ServiceTest : public ProcessesTest
{
protected:
    // Expects the calls, which are given without those that close the service and its manager.
    void ExpectStop(HRESULT result, const Calls& calls)
    {
        EXPECT_EQ(StopService(L"Spooler"), result);
        EXPECT_TRUE(AreEqual(journal.Take(), calls + c_close));
        EXPECT_EQ(failures.Entries(), Failures());
    }

    // Expects the failure of a call, which is recorded.
    void ExpectFailure(long error, HRESULT (*function)(const std::wstring&), const Calls& calls)
    {
        const HRESULT result = HRESULT_FROM_WIN32(static_cast<DWORD>(error));
        m_recorded.emplace_back("Service", result);
        EXPECT_EQ(function(L"Spooler"), result);
        EXPECT_TRUE(AreEqual(journal.Take(), calls));
        EXPECT_EQ(failures.Entries(), m_recorded);
    }

    FakeServiceManager manager{journal, handles, processes, clock};
    FakeService& spooler = manager.Add(L"Spooler");

private:
    Failures m_recorded;
};

TEST_F(ServiceTest, ServiceExists_says_yes_for_a_service_that_can_be_asked_for_its_status)
{
    EXPECT_TRUE(ServiceExists(L"Spooler"));

    EXPECT_EQ(journal.All(), (Calls{c_connect, c_openToAsk} + c_close));
}

TEST_F(ServiceTest, ServiceExists_says_no_whatever_keeps_the_service_from_being_opened)
{
    EXPECT_FALSE(ServiceExists(L"Spooler2"));
    for (const std::string& call : {c_openToAsk, c_connect})
    {
        journal.Fail(call, ERROR_ACCESS_DENIED);
        EXPECT_FALSE(ServiceExists(L"Spooler"));
    }

    EXPECT_EQ(journal.All(), (Calls{c_connect, "OpenServiceW(manager, \"Spooler2\", 0x4)", c_disconnect, //
                                    c_connect, c_openToAsk, c_disconnect, c_connect}));
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(ServiceTest, StopService_has_nothing_to_do_or_to_wait_for_when_the_service_is_stopped)
{
    spooler.IsStopped();

    ExpectStop(S_OK, c_openAndQuery);
}

TEST_F(ServiceTest, StopService_polls_every_half_second_and_waits_a_second_more)
{
    for (const auto& [milliseconds, polls] : {std::pair(1, 1), std::pair(1'700, 4), std::pair(9'500, 19)})
    {
        spooler.Is(SERVICE_RUNNING).StopsAfter(static_cast<ULONGLONG>(milliseconds));

        ExpectStop(S_OK, c_request + polls * c_poll + c_settle);
    }
}

TEST_F(ServiceTest, StopService_asks_services_in_every_state_but_stopped_and_about_to_stop)
{
    spooler.StopsAfter(1);
    for (const DWORD state :
         {DWORD{0}, DWORD{SERVICE_CONTINUE_PENDING}, DWORD{SERVICE_PAUSE_PENDING}, DWORD{SERVICE_PAUSED}})
    {
        spooler.Is(state);

        ExpectStop(S_OK, c_request + c_poll + c_settle);
    }
    spooler.Is(SERVICE_START_PENDING);
    ExpectFailure(ERROR_SERVICE_CANNOT_ACCEPT_CTRL, StopService, c_request + c_close);
}

TEST_F(ServiceTest, StopService_only_waits_for_a_service_that_is_about_to_stop)
{
    spooler.Is(SERVICE_STOP_PENDING).StopsAt(1'400);

    ExpectStop(S_OK, c_openAndQuery + 3 * c_poll + c_settle);
}

TEST_F(ServiceTest, StopService_does_not_believe_the_status_that_the_request_brings_back)
{
    spooler.StopsAfter(1'700).stateBroughtBack = SERVICE_STOPPED;
    ExpectStop(S_OK, c_request + 4 * c_poll + c_settle);

    // Even a service that has stopped before the request returns is polled once.
    spooler.Is(SERVICE_RUNNING).onStopRequest = [this] { spooler.IsStopped(); };
    ExpectStop(S_OK, c_request + c_poll + c_settle);
}

TEST_F(ServiceTest, StopService_kills_a_service_that_stays_about_to_stop)
{
    spooler.Is(SERVICE_STOP_PENDING).StopsAtKill(1);

    ExpectStop(S_OK, c_openAndQuery + 20 * c_poll + c_kill + c_poll + c_settle);
}

TEST_F(ServiceTest, StopService_asks_once_only_and_waits_twenty_polls_after_every_kill)
{
    spooler.StopsAtKill(3);

    ExpectStop(S_OK, c_request + 3 * (20 * c_poll + c_kill) + c_poll + c_settle);
}

TEST_F(ServiceTest, StopService_polls_on_after_a_kill)
{
    spooler.onKill = [this] { spooler.StopsAt(clock.Now() + 700); };

    ExpectStop(S_OK, c_request + 20 * c_poll + c_kill + 2 * c_poll + c_settle);
}

TEST_F(ServiceTest, StopService_gives_up_at_the_fourth_kill)
{
    ExpectStop(E_ABORT, c_request + 4 * (20 * c_poll + c_kill));
}

TEST_F(ServiceTest, StopService_gives_up_at_the_fourth_kill_even_if_that_stops_the_service)
{
    spooler.StopsAtKill(4);

    ExpectStop(E_ABORT, c_request + 4 * (20 * c_poll + c_kill));
}

// Only a kill starts the count of the polls again.
TEST_F(ServiceTest, StopService_tries_at_every_poll_while_the_process_cannot_be_opened_and_does_not_count_that)
{
    journal.Fail(c_openProcess, ERROR_ACCESS_DENIED, 10);

    ExpectStop(E_ABORT,
               c_request + 19 * c_poll + 10 * (c_poll + c_openProcess) + c_poll + c_kill + 3 * (20 * c_poll + c_kill));
}

TEST_F(ServiceTest, StopService_waits_without_limit_while_the_process_cannot_be_opened)
{
    journal.Fail(c_openProcess, ERROR_ACCESS_DENIED);
    spooler.StopsAt(3'600'000);

    ExpectStop(S_OK,
               c_request + 19 * c_poll + 7180 * (c_poll + c_openProcess) + c_poll + "OpenProcess(0x1, 0)" + c_settle);
}

TEST_F(ServiceTest, StopService_kills_the_process_that_the_latest_status_names)
{
    clock.At(9'600, [this] { spooler.RunsAs({.id = 77}); });
    // Killed, it is started again as the service manager was told to do in that case.
    clock.At(15'000, [this] { spooler.RunsAs({.id = 78}).StopsAtKill(1); });

    ExpectStop(S_OK, c_request + 20 * c_poll +
                         Calls{"OpenProcess(0x1, 77)", "TerminateProcess(77, 0)", "CloseHandle(77)"} + 20 * c_poll +
                         Calls{"OpenProcess(0x1, 78)", "TerminateProcess(78, 0)", "CloseHandle(78)"} + c_poll +
                         c_settle);
}

// The twentieth poll looks at the time first. A stopped service has no process, and there is none with the number 0.
TEST_F(ServiceTest, StopService_finds_no_process_when_the_service_stops_at_the_twentieth_poll)
{
    spooler.StopsAfter(10'000);

    ExpectStop(S_OK, c_request + 20 * c_poll + "OpenProcess(0x1, 0)" + c_settle);
}

TEST_F(ServiceTest, StopService_returns_and_records_every_call_that_fails)
{
    const std::string terminate = "TerminateProcess(1234, 0)";
    for (const auto& [call, error, calls] : std::vector<std::tuple<std::string, long, Calls>>{
             {c_connect, ERROR_DATABASE_DOES_NOT_EXIST, {c_connect}},
             {c_openToStop, ERROR_SERVICE_DOES_NOT_EXIST, {c_connect, c_openToStop, c_disconnect}},
             {c_query, ERROR_INVALID_HANDLE, c_openAndQuery + c_close},
             {c_control, ERROR_SERVICE_REQUEST_TIMEOUT, c_request + c_close},
             {terminate, ERROR_ACCESS_DENIED, c_request + 20 * c_poll + c_kill + c_close}})
    {
        journal.Fail(call, error, 1);

        ExpectFailure(error, StopService, calls);
    }
}

TEST_F(ServiceTest, StopService_returns_and_records_a_later_failure)
{
    clock.At(1'200, [this] { journal.Fail(c_query, RPC_S_SERVER_UNAVAILABLE, 1); });
    ExpectFailure(RPC_S_SERVER_UNAVAILABLE, StopService, c_request + 3 * c_poll + c_close);

    clock.At(clock.Now() + 28'500, [this] { journal.Fail("TerminateProcess", ERROR_ACCESS_DENIED); });
    ExpectFailure(ERROR_ACCESS_DENIED, StopService, c_request + 3 * (20 * c_poll + c_kill) + c_close);
}

TEST_F(ServiceTest, RemoveService_deletes_the_service_and_waits_five_seconds_before_it_lets_go)
{
    EXPECT_EQ(RemoveService(L"Spooler"), S_OK);

    EXPECT_EQ(journal.All(), (Calls{c_connect, c_openToDelete, c_delete, "Sleep(5000)"} + c_close));
    EXPECT_FALSE(manager.Has(L"Spooler"));
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(ServiceTest, RemoveService_takes_a_service_that_cannot_be_opened_for_gone)
{
    journal.Fail(c_openToDelete, ERROR_ACCESS_DENIED);

    EXPECT_EQ(RemoveService(L"Spooler2"), S_OK);
    EXPECT_EQ(RemoveService(L"Spooler"), S_OK);

    EXPECT_EQ(journal.All(), (Calls{c_connect, "OpenServiceW(manager, \"Spooler2\", 0x10000)", c_disconnect, //
                                    c_connect, c_openToDelete, c_disconnect}));
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(ServiceTest, RemoveService_returns_and_records_every_call_that_fails_and_does_not_wait)
{
    journal.Fail(c_delete, ERROR_SERVICE_MARKED_FOR_DELETE);
    ExpectFailure(ERROR_SERVICE_MARKED_FOR_DELETE, RemoveService, Calls{c_connect, c_openToDelete, c_delete} + c_close);

    journal.Fail(c_connect, ERROR_ACCESS_DENIED);
    ExpectFailure(ERROR_ACCESS_DENIED, RemoveService, {c_connect});
}

} // namespace
