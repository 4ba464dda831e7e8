#include "Installer/Service.h"

#include "support/Calls.h"
#include "support/FailureLog.h"
#include "support/FakeServiceManager.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <winsvc.h>

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using Failures = std::vector<FailureLog::Entry>;

// The pieces that the calls for the service "Spooler" are made of.
const Calls c_open{"open manager 1", "open Spooler 24"};
const std::string c_query = "query Spooler 0 36";
const std::string c_control = "control Spooler 1 1";
const Calls c_poll{"sleep 500", c_query};
const std::string c_settle = "sleep 1000";
const std::string c_openProcess = "open process 1234 1";
const Calls c_kill{c_openProcess, "kill 1234 0", "close process 1234"};
const Calls c_close{"close Spooler", "close manager"};

const Calls c_openAndQuery = c_open + c_query;
const Calls c_openAndRequest = c_openAndQuery + c_control;

// A machine with a service "Spooler" that runs as process 1234 and does not stop unless a test says so.
class ServiceTest : public testing::Test
{
protected:
    void TearDown() override { EXPECT_EQ(manager.OpenHandles(), 0U); }

    // The calls since the last time.
    Calls NewCalls()
    {
        const Calls& all = manager.Calls();
        return {all.begin() + std::exchange(m_seen, std::ssize(all)), all.end()};
    }

    // That one call failed, and that no other failure was recorded.
    static Failures Recorded(DWORD error) { return {{"Service", HRESULT_FROM_WIN32(error)}}; }

    VirtualClock clock;
    FakeServiceManager manager{clock};
    FailureLog failures;
    FakeService& spooler = manager.Add(L"Spooler");

private:
    std::ptrdiff_t m_seen = 0;
};

TEST_F(ServiceTest, ServiceExists_says_yes_for_a_service_that_can_be_asked_for_its_status)
{
    EXPECT_TRUE(ServiceExists(L"Spooler"));

    EXPECT_TRUE(AreEqual(manager.Calls(), Calls({"open manager 1", "open Spooler 4"}) + c_close));
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(ServiceTest, ServiceExists_says_no_for_an_absent_service)
{
    EXPECT_FALSE(ServiceExists(L"Spooler2"));

    EXPECT_TRUE(AreEqual(manager.Calls(), (Calls{"open manager 1", "open Spooler2 4", "close manager"})));
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(ServiceTest, ServiceExists_says_no_whatever_keeps_the_service_from_being_opened)
{
    manager.FailCall("open Spooler 4", ERROR_ACCESS_DENIED);

    EXPECT_FALSE(ServiceExists(L"Spooler"));

    EXPECT_TRUE(AreEqual(manager.Calls(), (Calls{"open manager 1", "open Spooler 4", "close manager"})));
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(ServiceTest, ServiceExists_says_no_without_a_service_manager)
{
    manager.FailCall("open manager 1", ERROR_ACCESS_DENIED);

    EXPECT_FALSE(ServiceExists(L"Spooler"));

    EXPECT_TRUE(AreEqual(manager.Calls(), Calls{"open manager 1"}));
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(ServiceTest, StopService_has_nothing_to_do_or_to_wait_for_when_the_service_is_stopped)
{
    spooler.IsStopped();

    EXPECT_EQ(StopService(L"Spooler"), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndQuery + c_close));
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(ServiceTest, StopService_waits_one_poll_and_a_second_for_a_service_that_obeys_at_once)
{
    spooler.StopsAfter(1);

    EXPECT_EQ(StopService(L"Spooler"), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndRequest + c_poll + c_settle + c_close));
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(ServiceTest, StopService_polls_every_half_second)
{
    spooler.StopsAfter(1700);

    EXPECT_EQ(StopService(L"Spooler"), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndRequest + 4 * c_poll + c_settle + c_close));
}

TEST_F(ServiceTest, StopService_asks_services_in_every_state_but_stopped_and_about_to_stop)
{
    for (const DWORD state : {DWORD{0}, DWORD{SERVICE_START_PENDING}, DWORD{SERVICE_RUNNING},
                              DWORD{SERVICE_CONTINUE_PENDING}, DWORD{SERVICE_PAUSE_PENDING}, DWORD{SERVICE_PAUSED}})
    {
        spooler.Is(state).StopsAfter(1);

        EXPECT_EQ(StopService(L"Spooler"), S_OK);

        EXPECT_TRUE(AreEqual(NewCalls(), c_openAndRequest + c_poll + c_settle + c_close)) << state;
    }
}

TEST_F(ServiceTest, StopService_only_waits_for_a_service_that_is_about_to_stop)
{
    spooler.Is(SERVICE_STOP_PENDING).StopsAt(1400);

    EXPECT_EQ(StopService(L"Spooler"), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndQuery + 3 * c_poll + c_settle + c_close));
}

TEST_F(ServiceTest, StopService_tells_the_service_manager_why)
{
    spooler.StopsAfter(1);
    const SERVICE_STATUS_PROCESS queried = spooler.status;

    StopService(L"Spooler");

    ASSERT_EQ(manager.stopRequests.size(), 1U);
    const auto& [reason, comment, status] = manager.stopRequests[0];
    EXPECT_EQ(reason, 0x40050003U);
    EXPECT_EQ(comment, L"Stopping to perform install/uninstall.");
    EXPECT_EQ(status.dwServiceType, queried.dwServiceType);
    EXPECT_EQ(status.dwCurrentState, queried.dwCurrentState);
    EXPECT_EQ(status.dwControlsAccepted, queried.dwControlsAccepted);
    EXPECT_EQ(status.dwWin32ExitCode, queried.dwWin32ExitCode);
    EXPECT_EQ(status.dwServiceSpecificExitCode, queried.dwServiceSpecificExitCode);
    EXPECT_EQ(status.dwCheckPoint, queried.dwCheckPoint);
    EXPECT_EQ(status.dwWaitHint, queried.dwWaitHint);
    EXPECT_EQ(status.dwProcessId, queried.dwProcessId);
    EXPECT_EQ(status.dwServiceFlags, queried.dwServiceFlags);
}

TEST_F(ServiceTest, StopService_does_not_believe_the_status_that_the_request_brings_back)
{
    spooler.StopsAfter(1700).stateBroughtBack = SERVICE_STOPPED;
    EXPECT_EQ(StopService(L"Spooler"), S_OK);
    EXPECT_TRUE(AreEqual(NewCalls(), c_openAndRequest + 4 * c_poll + c_settle + c_close));

    // Even a service that has stopped before the request returns is polled once.
    spooler.Is(SERVICE_RUNNING).onStopRequest = [this] { spooler.IsStopped(); };
    EXPECT_EQ(StopService(L"Spooler"), S_OK);
    EXPECT_TRUE(AreEqual(NewCalls(), c_openAndRequest + c_poll + c_settle + c_close));
}

TEST_F(ServiceTest, StopService_kills_a_hung_service_after_twenty_polls)
{
    spooler.StopsAtKill(1);

    EXPECT_EQ(StopService(L"Spooler"), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndRequest + 20 * c_poll + c_kill + c_poll + c_settle + c_close));
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(ServiceTest, StopService_kills_a_service_that_stays_about_to_stop)
{
    spooler.Is(SERVICE_STOP_PENDING).StopsAtKill(1);

    EXPECT_EQ(StopService(L"Spooler"), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndQuery + 20 * c_poll + c_kill + c_poll + c_settle + c_close));
}

TEST_F(ServiceTest, StopService_asks_once_only_and_waits_twenty_polls_after_every_kill)
{
    spooler.StopsAtKill(3);

    EXPECT_EQ(StopService(L"Spooler"), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndRequest + 3 * (20 * c_poll + c_kill) + c_poll + c_settle + c_close));
}

TEST_F(ServiceTest, StopService_polls_on_after_a_kill)
{
    spooler.onKill = [this] { spooler.StopsAt(clock.Now() + 700); };

    EXPECT_EQ(StopService(L"Spooler"), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndRequest + 20 * c_poll + c_kill + 2 * c_poll + c_settle + c_close));
}

TEST_F(ServiceTest, StopService_gives_up_at_the_fourth_kill)
{
    EXPECT_EQ(StopService(L"Spooler"), E_ABORT);

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndRequest + 4 * (20 * c_poll + c_kill) + c_close));
    EXPECT_EQ(clock.Now(), 40'000U);
    EXPECT_EQ(failures.Entries(), Failures()); // no call has failed
}

TEST_F(ServiceTest, StopService_gives_up_at_the_fourth_kill_even_if_that_stops_the_service)
{
    spooler.StopsAtKill(4);

    EXPECT_EQ(StopService(L"Spooler"), E_ABORT);

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndRequest + 4 * (20 * c_poll + c_kill) + c_close));
}

TEST_F(ServiceTest, StopService_tries_to_kill_at_every_poll_while_the_process_cannot_be_opened)
{
    manager.FailCall(c_openProcess, ERROR_ACCESS_DENIED, 3);
    spooler.StopsAtKill(2);

    EXPECT_EQ(StopService(L"Spooler"), S_OK);

    // Only a kill starts the count again.
    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndRequest + 19 * c_poll + 3 * (c_poll + c_openProcess) + c_poll +
                                              c_kill + 20 * c_poll + c_kill + c_poll + c_settle + c_close));
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(ServiceTest, StopService_does_not_count_the_kills_that_it_could_not_make)
{
    manager.FailCall(c_openProcess, ERROR_ACCESS_DENIED, 10);

    EXPECT_EQ(StopService(L"Spooler"), E_ABORT);

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndRequest + 19 * c_poll + 10 * (c_poll + c_openProcess) + c_poll +
                                              c_kill + 3 * (20 * c_poll + c_kill) + c_close));
}

TEST_F(ServiceTest, StopService_waits_without_limit_while_the_process_cannot_be_opened)
{
    manager.FailCall(c_openProcess, ERROR_ACCESS_DENIED);
    spooler.StopsAt(3'600'000);

    EXPECT_EQ(StopService(L"Spooler"), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndRequest + 19 * c_poll + 7180 * (c_poll + c_openProcess) + c_poll +
                                              "open process 0 1" + c_settle + c_close));
    EXPECT_EQ(clock.Now(), 3'601'000U);
}

TEST_F(ServiceTest, StopService_waits_without_limit_until_the_status_cannot_be_queried)
{
    manager.FailCall(c_openProcess, ERROR_ACCESS_DENIED);
    clock.At(3'600'000, [this] { manager.FailCall(c_query, RPC_S_SERVER_UNAVAILABLE); });

    EXPECT_EQ(StopService(L"Spooler"), HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE));

    EXPECT_TRUE(
        AreEqual(manager.Calls(), c_openAndRequest + 19 * c_poll + 7180 * (c_poll + c_openProcess) + c_poll + c_close));
    EXPECT_EQ(failures.Entries(), Recorded(RPC_S_SERVER_UNAVAILABLE));
}

TEST_F(ServiceTest, StopService_kills_the_process_that_the_latest_status_names)
{
    clock.At(9'600, [this] { spooler.RunsAs(77); });
    // Killed, it is started again as the service manager was told to do in that case.
    clock.At(15'000, [this] { spooler.RunsAs(78).StopsAtKill(1); });

    EXPECT_EQ(StopService(L"Spooler"), S_OK);

    EXPECT_TRUE(AreEqual(
        manager.Calls(),
        c_openAndRequest + 20 * c_poll + Calls({"open process 77 1", "kill 77 0", "close process 77"}) + 20 * c_poll +
            Calls({"open process 78 1", "kill 78 0", "close process 78"}) + c_poll + c_settle + c_close));
}

TEST_F(ServiceTest, StopService_kills_nothing_when_the_service_stops_before_the_twentieth_poll)
{
    spooler.StopsAfter(9'500);

    EXPECT_EQ(StopService(L"Spooler"), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndRequest + 19 * c_poll + c_settle + c_close));
}

// The twentieth poll looks at the time first. A stopped service has no process, and there is none with the number 0.
TEST_F(ServiceTest, StopService_finds_no_process_when_the_service_stops_at_the_twentieth_poll)
{
    spooler.StopsAfter(10'000);

    EXPECT_EQ(StopService(L"Spooler"), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndRequest + 20 * c_poll + "open process 0 1" + c_settle + c_close));
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(ServiceTest, StopService_returns_and_records_every_call_that_fails)
{
    struct Case
    {
        std::string call;
        DWORD error;
        Calls calls;
    };
    Failures expected;
    for (const auto& [call, error, calls] : {
             Case{"open manager 1", ERROR_DATABASE_DOES_NOT_EXIST, {"open manager 1"}},
             Case{"open Spooler 24", ERROR_ACCESS_DENIED, c_open + "close manager"},
             Case{c_query, ERROR_INVALID_LEVEL, c_openAndQuery + c_close},
             Case{c_control, ERROR_SERVICE_CANNOT_ACCEPT_CTRL, c_openAndRequest + c_close},
             Case{"kill 1234 0", ERROR_INVALID_HANDLE, c_openAndRequest + 20 * c_poll + c_kill + c_close},
         })
    {
        manager.FailCall(call, error, 1);
        expected.emplace_back("Service", HRESULT_FROM_WIN32(error));

        EXPECT_EQ(StopService(L"Spooler"), HRESULT_FROM_WIN32(error));

        EXPECT_TRUE(AreEqual(NewCalls(), calls));
        EXPECT_EQ(manager.OpenHandles(), 0U);
        EXPECT_EQ(failures.Entries(), expected);
    }
}

TEST_F(ServiceTest, StopService_takes_an_absent_service_for_a_failure)
{
    EXPECT_EQ(StopService(L"Spooler2"), HRESULT_FROM_WIN32(ERROR_SERVICE_DOES_NOT_EXIST));

    EXPECT_TRUE(AreEqual(manager.Calls(), (Calls{"open manager 1", "open Spooler2 24", "close manager"})));
    EXPECT_EQ(failures.Entries(), Recorded(ERROR_SERVICE_DOES_NOT_EXIST));
}

TEST_F(ServiceTest, StopService_returns_the_failure_of_a_later_query)
{
    clock.At(1'200, [this] { manager.FailCall(c_query, ERROR_INVALID_HANDLE); });

    EXPECT_EQ(StopService(L"Spooler"), HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndRequest + 3 * c_poll + c_close));
    EXPECT_EQ(failures.Entries(), Recorded(ERROR_INVALID_HANDLE));
}

TEST_F(ServiceTest, StopService_returns_the_failure_of_a_later_kill)
{
    clock.At(30'000, [this] { manager.FailCall("kill 1234 0", ERROR_ACCESS_DENIED); });

    EXPECT_EQ(StopService(L"Spooler"), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));

    EXPECT_TRUE(AreEqual(manager.Calls(), c_openAndRequest + 3 * (20 * c_poll + c_kill) + c_close));
    EXPECT_EQ(failures.Entries(), Recorded(ERROR_ACCESS_DENIED));
}

TEST_F(ServiceTest, RemoveService_deletes_the_service_and_waits_five_seconds_before_it_lets_go)
{
    EXPECT_EQ(RemoveService(L"Spooler"), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(),
                         Calls({"open manager 1", "open Spooler 10000", "delete Spooler", "sleep 5000"}) + c_close));
    EXPECT_FALSE(manager.Has(L"Spooler"));
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(ServiceTest, RemoveService_takes_a_service_that_cannot_be_opened_for_gone)
{
    manager.FailCall("open Spooler 10000", ERROR_ACCESS_DENIED);

    EXPECT_EQ(RemoveService(L"Spooler2"), S_OK);
    EXPECT_EQ(RemoveService(L"Spooler"), S_OK);

    EXPECT_TRUE(AreEqual(manager.Calls(), (Calls{"open manager 1", "open Spooler2 10000", "close manager", //
                                                 "open manager 1", "open Spooler 10000", "close manager"})));
    EXPECT_TRUE(manager.Has(L"Spooler"));
    EXPECT_EQ(failures.Entries(), Failures());
}

TEST_F(ServiceTest, RemoveService_returns_and_records_the_failure_to_reach_the_service_manager)
{
    manager.FailCall("open manager 1", ERROR_ACCESS_DENIED);

    EXPECT_EQ(RemoveService(L"Spooler"), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));

    EXPECT_TRUE(AreEqual(manager.Calls(), Calls{"open manager 1"}));
    EXPECT_EQ(failures.Entries(), Recorded(ERROR_ACCESS_DENIED));
}

TEST_F(ServiceTest, RemoveService_returns_and_records_the_failure_to_delete_and_does_not_wait)
{
    manager.FailCall("delete Spooler", ERROR_SERVICE_MARKED_FOR_DELETE);

    EXPECT_EQ(RemoveService(L"Spooler"), HRESULT_FROM_WIN32(ERROR_SERVICE_MARKED_FOR_DELETE));

    EXPECT_TRUE(AreEqual(manager.Calls(), Calls({"open manager 1", "open Spooler 10000", "delete Spooler"}) + c_close));
    EXPECT_TRUE(manager.Has(L"Spooler"));
    EXPECT_EQ(failures.Entries(), Recorded(ERROR_SERVICE_MARKED_FOR_DELETE));
}

} // namespace
