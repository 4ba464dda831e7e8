#include "Installer/ClientHelper.h"

#include "support/Calls.h"
#include "support/DirectoryLink.h"
#include "support/FailureLog.h"
#include "support/FakeCodePage.h"
#include "support/FakeProcesses.h"
#include "support/FakeTaskDialog.h"
#include "support/FakeWindows.h"
#include "support/OutOfMemory.h"
#include "support/PathLimits.h"
#include "support/RunLog.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <wil/result.h>

#include <algorithm>
#include <initializer_list>
#include <map>
#include <new>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;
using Pauses = std::vector<DWORD>;
using Lines = std::vector<std::string>;
using Lockers = std::map<DWORD, std::wstring>;

// The id of the process that the tests stand for.
constexpr DWORD c_self = 7777;

constexpr wchar_t c_handler[] = L"Velmora_NotifyIcon_Handler_1";

const std::string c_asked = "|INFO|:    [ClientHelper] Attempting to close Velmora via notify icon handler...";
const std::string c_ended = "|INFO|:    [ClientHelper] Velmora process has terminated successfully.";
const std::string c_terminated = "|INFO|:    [ClientHelper] Velmora process forcefully terminated.";
const std::string c_allTerminated = "|INFO|:    [ClientHelper] Velmora process has been successfully terminated.";
const std::string c_stillRunning =
    "|ERROR|:   [ClientHelper] Velmora process is still running after force termination attempt.";
const std::string c_differentUser =
    "|WARNING|: [ClientHelper] This process is likely running under a different user account. We cannot close this "
    "without resorting to... undesirable methods. Restart the system to continue.";
const std::string c_alreadyClosed =
    "|WARNING|: [ClientHelper] Unable to open process, assuming it has closed at some point since last check...";
const std::string c_openFailed = "|ERROR|:   [ClientHelper] Failed to open Velmora process for termination: ";

std::string Found(DWORD id)
{
    return "|INFO|:    [ClientHelper] Found running Velmora process! (" + std::to_string(id) +
           "). Attempting to gracefully stop it...";
}

std::string StillRunning(DWORD id)
{
    return "|INFO|:    [ClientHelper] Velmora process still running after graceful shutdown attempt. (" +
           std::to_string(id) + "). Attempting to force close...";
}

// The calls of a walk through all processes, of which there are so many after the first one. What is done with one of
// them follows upon the call that brings it.
Calls Walk(const std::vector<Calls>& processes)
{
    Calls calls{"snapshot 2 0", "first 568"};
    for (const Calls& process : processes)
    {
        calls = std::move(calls) + "next" + process;
    }
    return std::move(calls) + Calls{"next", "close snapshot"};
}

Calls Walk(std::size_t processes)
{
    return Walk(std::vector<Calls>(processes));
}

// A machine whose processes and windows are those of the test; the calls and what else happens stand in one list.
class ClientHelperTest : public testing::Test
{
protected:
    ClientHelperTest()
    {
        clock.onSleep = [this](DWORD milliseconds) { processes.Note("sleep " + std::to_string(milliseconds)); };
        log.onLine = [this](const std::string& line) { processes.Note("log " + line); };
    }

    // Only now: folders of tests are named after the real process.
    void SetUp() override
    {
        m_self.emplace([] { return c_self; });
    }
    void TearDown() override { EXPECT_EQ(processes.OpenHandles(), 0U); }

    Calls NewCalls() { return processes.NewCalls(); }

    // The calls of some kinds only.
    Calls CallsOf(const std::vector<std::string>& kinds) const
    {
        Calls calls;
        for (const std::string& call : processes.Calls())
        {
            if (std::ranges::any_of(kinds, [&](const std::string& kind) { return call.starts_with(kind); }))
            {
                calls.push_back(call);
            }
        }
        return calls;
    }

    VirtualClock clock;
    FailureLog failures;
    FakeProcesses processes;
    FakeWindows windows{processes};
    RunLog log;

private:
    std::optional<Fake<&GetCurrentProcessId>> m_self;
};

class FindRunningClientProcessesTest : public ClientHelperTest
{
};

TEST_F(FindRunningClientProcessesTest, knows_the_clients_by_their_exact_names)
{
    processes.Add({.id = 4, .name = L"System"});
    processes.Add({.id = 8, .name = L"Velmora.exe"});
    processes.Add({.id = 12, .name = L"Orvane.exe"});
    DWORD id = 100;
    for (const wchar_t* const name :
         {L"velmora.exe", L"Velmora.EXE", L"VELMORA.EXE", L"orvane.exe", L"Orvane.Exe", L"Velmora", L"Velmora.ex",
          L"Velmora.exe.exe", L"Velmora.exe ", L" Velmora.exe", L"Velmora2.exe", L"Orvane", L"xOrvane.exe", L""})
    {
        processes.Add({.id = ++id, .name = name});
    }

    EXPECT_THAT(FindRunningClientProcesses(), ElementsAre(8, 12));
}

TEST_F(FindRunningClientProcessesTest, gives_each_id_once_in_ascending_order)
{
    for (const DWORD id : std::initializer_list<DWORD>{4000, 12, 0x80000004, 8, 12, 4000})
    {
        processes.Add({.id = id, .name = L"Velmora.exe"});
    }

    EXPECT_THAT(FindRunningClientProcesses(), ElementsAre(8, 12, 4000, 0x80000004));
}

TEST_F(FindRunningClientProcessesTest, leaves_out_its_own_process_whatever_its_name)
{
    processes.Add({.id = c_self, .name = L"Velmora.exe"});
    processes.Add({.id = c_self + 1, .name = L"Velmora.exe"});

    EXPECT_THAT(FindRunningClientProcesses(), ElementsAre(c_self + 1));
}

TEST_F(FindRunningClientProcessesTest, does_not_look_at_the_first_process)
{
    processes.PutFirst({.id = 8, .name = L"Velmora.exe"});
    processes.Add({.id = 12, .name = L"Velmora.exe"});

    EXPECT_THAT(FindRunningClientProcesses(), ElementsAre(12));
}

TEST_F(FindRunningClientProcessesTest, walks_through_one_snapshot_and_closes_it)
{
    processes.Add({.id = 8, .name = L"Velmora.exe"});
    processes.Add({.id = 12, .name = L"Orvane.exe"});

    FindRunningClientProcesses();

    EXPECT_EQ(NewCalls(), Walk(2));
}

TEST_F(FindRunningClientProcessesTest, finds_nothing_in_a_snapshot_that_cannot_be_read)
{
    processes.Add({.id = 8, .name = L"Velmora.exe"});
    processes.FailFirst();

    EXPECT_THAT(FindRunningClientProcesses(), IsEmpty());
    EXPECT_THAT(NewCalls(), ElementsAre("snapshot 2 0", "first 568", "close snapshot"));
}

TEST_F(FindRunningClientProcessesTest, throws_the_last_error_when_there_is_no_snapshot)
{
    for (const HANDLE result : {HANDLE{nullptr}, INVALID_HANDLE_VALUE})
    {
        processes.FailSnapshots(result, ERROR_BAD_LENGTH);
        try
        {
            FindRunningClientProcesses();
            FAIL() << "nothing was thrown";
        }
        catch (const wil::ResultException& exception)
        {
            EXPECT_EQ(exception.GetErrorCode(), HRESULT_FROM_WIN32(ERROR_BAD_LENGTH));
        }
        EXPECT_THAT(NewCalls(), ElementsAre("snapshot 2 0"));
    }
    EXPECT_THAT(failures.Entries(), ElementsAre(Pair("ClientHelper", HRESULT_FROM_WIN32(ERROR_BAD_LENGTH)),
                                                Pair("ClientHelper", HRESULT_FROM_WIN32(ERROR_BAD_LENGTH))));
}

class StopRunningClientTest : public ClientHelperTest
{
protected:
    bool Stop() { return StopRunningClient(log.Logger()); }

    // Adds a client that has no window.
    void AddClient(DWORD id, const std::wstring& name = L"Velmora.exe") { processes.Add({.id = id, .name = name}); }

    // Adds a client that closes some time after it was asked to, in milliseconds.
    void AddClientThatCloses(DWORD id, std::uintptr_t window, ULONGLONG afterMilliseconds)
    {
        AddClient(id);
        windows.Add({.handle = window, .process = id, .className = c_handler});
        windows.onPost = [=, this](std::uintptr_t) {
            clock.At(clock.Now() + afterMilliseconds, [=, this] { processes.Remove(id); });
        };
    }
};

TEST_F(StopRunningClientTest, looks_once_and_says_nothing_when_no_client_is_running)
{
    processes.Add({.id = 8, .name = L"velmora.exe"});
    windows.Add({.handle = 0x10, .process = 8, .className = c_handler});

    EXPECT_TRUE(Stop());

    EXPECT_EQ(NewCalls(), Walk(1));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(StopRunningClientTest, asks_the_client_to_close_and_sees_it_end)
{
    processes.Add({.id = 4, .name = L"System"});
    windows.Add({.handle = 0x10, .process = 4, .className = L"Desktop"});
    AddClientThatCloses(40, 0x20, 800);
    windows.Add({.handle = 0x30, .process = 40, .className = L"Main window"});

    EXPECT_TRUE(Stop());

    EXPECT_EQ(NewCalls(), (Walk(2) + ("log " + Found(40)) +
                           Calls{"top 0", "owner 10", "next 10 2", "owner 20", "next 20 2", "owner 30", "next 30 2",
                                 "class 20 512", "log " + c_asked, "post 20 111 c351 0", "class 30 512"} +
                           Walk(2) + "sleep 1000" + Walk(1) + ("log " + c_ended)));
    EXPECT_EQ(log.Lines(), (Lines{Found(40), c_asked, c_ended}));
}

TEST_F(StopRunningClientTest, terminates_a_client_that_does_not_close)
{
    AddClientThatCloses(40, 0x20, 60'000);

    EXPECT_TRUE(Stop());

    EXPECT_EQ(NewCalls(),
              (Walk(1) + ("log " + Found(40)) +
               Calls{"top 0", "owner 20", "next 20 2", "class 20 512", "log " + c_asked, "post 20 111 c351 0"} +
               10 * (Walk(1) + "sleep 1000") +
               Calls{"log " + StillRunning(40), "open 1 40", "terminate 40 0", "log " + c_terminated, "close 40"} +
               Walk(0) + ("log " + c_allTerminated)));
    EXPECT_EQ(log.Lines(), (Lines{Found(40), c_asked, StillRunning(40), c_terminated, c_allTerminated}));
}

TEST_F(StopRunningClientTest, waits_for_a_client_without_a_window_before_it_is_terminated)
{
    AddClient(40);

    EXPECT_TRUE(Stop());

    EXPECT_EQ(clock.Sleeps(), Pauses(10, 1000));
    EXPECT_EQ(log.Lines(), (Lines{Found(40), StillRunning(40), c_terminated, c_allTerminated}));
    EXPECT_THAT(CallsOf({"post", "class"}), IsEmpty());
}

TEST_F(StopRunningClientTest, asks_all_clients_in_the_order_of_their_ids_and_their_windows_in_that_of_the_handles)
{
    AddClient(80, L"Orvane.exe");
    AddClient(40);
    AddClient(44);
    windows.Add({.handle = 0x50, .process = 80, .className = c_handler});
    windows.Add({.handle = 0x48, .process = 40, .className = c_handler});
    windows.Add({.handle = 0x90, .process = 40, .className = c_handler});
    windows.Add({.handle = 0x20, .process = 80, .className = L"Other"});
    windows.Add({.handle = 0x30, .process = 40, .className = c_handler});
    windows.Add({.handle = 0x10, .process = 80, .className = c_handler});
    windows.Add({.handle = 0x08, .process = 4, .className = c_handler});

    EXPECT_TRUE(Stop());

    EXPECT_THAT(CallsOf({"class", "post"}),
                ElementsAre("class 30 512", "post 30 111 c351 0", "class 48 512", "post 48 111 c351 0", "class 90 512",
                            "post 90 111 c351 0", "class 10 512", "post 10 111 c351 0", "class 20 512", "class 50 512",
                            "post 50 111 c351 0"));
    EXPECT_EQ(log.Lines(),
              (Lines{Found(40), c_asked, c_asked, c_asked, Found(44), Found(80), c_asked, c_asked, StillRunning(40),
                     c_terminated, StillRunning(44), c_terminated, StillRunning(80), c_terminated, c_allTerminated}));
    EXPECT_THAT(CallsOf({"open", "terminate", "close 4", "close 8"}),
                ElementsAre("open 1 40", "terminate 40 0", "close 40", "open 1 44", "terminate 44 0", "close 44",
                            "open 1 80", "terminate 80 0", "close 80"));
}

TEST_F(StopRunningClientTest, knows_the_window_by_the_beginning_of_its_class)
{
    AddClient(40);
    std::uintptr_t handle = 0;
    for (const wchar_t* const name :
         {L"Velmora_NotifyIcon_Handler_", L"Velmora_NotifyIcon_Handler_any", L"Velmora_NotifyIcon_Handler",
          L"velmora_NotifyIcon_Handler_1", L"Velmora_NotifyIcon_handler_1", L"xVelmora_NotifyIcon_Handler_1",
          L"Velmora_NotifyIcon_Handler 1", L""})
    {
        windows.Add({.handle = ++handle, .process = 40, .className = name});
    }
    windows.Add({.handle = ++handle, .process = 40, .className = c_handler + std::wstring(230, L'x')});

    Stop();

    EXPECT_THAT(CallsOf({"post"}), ElementsAre("post 1 111 c351 0", "post 2 111 c351 0", "post 9 111 c351 0"));
}

TEST_F(StopRunningClientTest, goes_on_when_a_message_cannot_be_posted)
{
    AddClient(40);
    AddClient(44);
    windows.Add({.handle = 0x10, .process = 40, .className = c_handler, .postError = ERROR_ACCESS_DENIED});
    windows.Add({.handle = 0x20, .process = 40, .className = c_handler, .postError = ERROR_NOT_ENOUGH_QUOTA});
    windows.Add({.handle = 0x30, .process = 44, .className = c_handler});
    clock.At(500, [this] {
        processes.Remove(40);
        processes.Remove(44);
    });

    EXPECT_TRUE(Stop());

    EXPECT_EQ(log.Lines(),
              (Lines{Found(40), c_asked, "|WARNING|: [ClientHelper] Failed to send message: -2147024891", c_asked,
                     "|WARNING|: [ClientHelper] Failed to send message: -2147023080", Found(44), c_asked, c_ended}));
    EXPECT_THAT(CallsOf({"post"}), ElementsAre("post 10 111 c351 0", "post 20 111 c351 0", "post 30 111 c351 0"));
}

TEST_F(StopRunningClientTest, leaves_alone_a_window_that_is_gone_before_its_class_is_read)
{
    AddClient(40);
    windows.Add({.handle = 0x10, .process = 40, .className = c_handler});
    windows.Add({.handle = 0x20, .process = 40, .className = c_handler});
    windows.onPost = [this](std::uintptr_t) { windows.Remove(0x20); };

    EXPECT_TRUE(Stop());

    EXPECT_THAT(CallsOf({"class", "post"}), ElementsAre("class 10 512", "post 10 111 c351 0", "class 20 512"));
}

TEST_F(StopRunningClientTest, asks_the_windows_that_it_found_before_one_went_away_under_it)
{
    AddClient(40);
    windows.Add({.handle = 0x10, .process = 40, .className = c_handler});
    windows.Add({.handle = 0x20, .process = 40, .className = c_handler});
    windows.Add({.handle = 0x30, .process = 40, .className = c_handler});
    windows.onOwner = [this](std::uintptr_t window) {
        if (window == 0x20)
        {
            windows.Remove(window);
        }
    };

    EXPECT_TRUE(Stop());

    EXPECT_THAT(CallsOf({"owner", "next ", "class", "post"}),
                ElementsAre("owner 10", "next 10 2", "owner 20", "next 20 2", "class 10 512", "post 10 111 c351 0"));
}

TEST_F(StopRunningClientTest, asks_a_window_once_that_is_met_twice)
{
    AddClient(40);
    const FakeWindow handler{.handle = 0x10, .process = 40, .className = c_handler};
    windows.Add(handler);
    windows.Add({.handle = 0x20, .process = 4, .className = L"Other"});
    windows.onOwner = [&](std::uintptr_t window) {
        if (window == 0x20) // as soon as it has been met, it goes behind the next one
        {
            windows.Remove(handler.handle);
            windows.Add(handler);
        }
    };
    windows.onPost = [this](std::uintptr_t) { processes.Remove(40); };

    EXPECT_TRUE(Stop());

    EXPECT_THAT(CallsOf({"owner", "class", "post"}),
                ElementsAre("owner 10", "owner 20", "owner 10", "class 10 512", "post 10 111 c351 0"));
    EXPECT_EQ(log.Lines(), (Lines{Found(40), c_asked, c_ended}));
}

TEST_F(StopRunningClientTest, writes_the_ids_of_processes_without_a_sign)
{
    AddClient(0x80000004);
    AddClient(0xFFFFFFFC);

    EXPECT_TRUE(Stop());

    EXPECT_EQ(log.Lines(),
              (Lines{"|INFO|:    [ClientHelper] Found running Velmora process! (2147483652). Attempting to gracefully "
                     "stop it...",
                     "|INFO|:    [ClientHelper] Found running Velmora process! (4294967292). Attempting to gracefully "
                     "stop it...",
                     "|INFO|:    [ClientHelper] Velmora process still running after graceful shutdown attempt. "
                     "(2147483652). Attempting to force close...",
                     c_terminated,
                     "|INFO|:    [ClientHelper] Velmora process still running after graceful shutdown attempt. "
                     "(4294967292). Attempting to force close...",
                     c_terminated, c_allTerminated}));
}

TEST_F(StopRunningClientTest, looks_ten_times_a_second_apart_before_it_terminates)
{
    for (const ULONGLONG end : std::initializer_list<ULONGLONG>{1, 999, 1000, 5500, 8999, 9000})
    {
        const std::size_t before = clock.Sleeps().size();
        AddClientThatCloses(40, 0x20, end);

        EXPECT_TRUE(Stop());

        EXPECT_EQ(clock.Sleeps().size() - before, (end + 999) / 1000) << end;
        EXPECT_EQ(log.Lines().back(), c_ended);
        windows.Remove(0x20);
    }
    EXPECT_THAT(CallsOf({"open", "terminate"}), IsEmpty());
}

TEST_F(StopRunningClientTest, takes_a_client_that_ended_after_the_last_look_for_closed)
{
    AddClientThatCloses(40, 0x20, 9500);

    EXPECT_TRUE(Stop());

    EXPECT_EQ(clock.Sleeps(), Pauses(10, 1000));
    EXPECT_EQ(log.Lines(), (Lines{Found(40), c_asked, StillRunning(40), c_alreadyClosed, c_allTerminated}));
    EXPECT_THAT(CallsOf({"open", "terminate"}), ElementsAre("open 1 40"));
}

TEST_F(StopRunningClientTest, terminates_those_that_the_last_look_found)
{
    AddClient(40);
    AddClient(44);
    clock.At(3000, [this] {
        processes.Remove(40);
        AddClient(36, L"Orvane.exe");
    });
    clock.At(9500, [this] { AddClient(48); }); // after the last look

    EXPECT_FALSE(Stop());

    EXPECT_THAT(CallsOf({"open", "terminate"}),
                ElementsAre("open 1 36", "terminate 36 0", "open 1 44", "terminate 44 0"));
    EXPECT_EQ(log.Lines(), (Lines{Found(40), Found(44), StillRunning(36), c_terminated, StillRunning(44), c_terminated,
                                  c_stillRunning}));
    EXPECT_EQ(clock.Sleeps(), Pauses(20, 1000));
}

TEST_F(StopRunningClientTest, does_not_take_another_program_for_the_client_whose_id_it_was_given)
{
    AddClient(40);
    clock.At(500, [this] {
        processes.Remove(40);
        processes.Add({.id = 40, .name = L"notepad.exe"});
    });

    EXPECT_TRUE(Stop());

    EXPECT_EQ(log.Lines(), (Lines{Found(40), c_ended}));
    EXPECT_TRUE(processes.Find(40));
}

TEST_F(StopRunningClientTest, goes_on_when_a_client_cannot_be_terminated)
{
    processes.Add({.id = 40, .name = L"Velmora.exe", .terminateError = ERROR_ACCESS_DENIED});
    AddClient(44);
    clock.At(12'500, [this] { processes.Remove(40); });

    EXPECT_TRUE(Stop());

    EXPECT_EQ(log.Lines(),
              (Lines{Found(40), Found(44), StillRunning(40),
                     "|ERROR|:   [ClientHelper] Failed to forcefully terminate Velmora process: -2147024891",
                     StillRunning(44), c_terminated, c_allTerminated}));
    EXPECT_THAT(CallsOf({"open", "terminate", "close 4"}),
                ElementsAre("open 1 40", "terminate 40 0", "close 40", "open 1 44", "terminate 44 0", "close 44"));
    EXPECT_EQ(clock.Sleeps(), Pauses(13, 1000));
}

TEST_F(StopRunningClientTest, goes_on_when_a_client_cannot_be_opened)
{
    processes.Add({.id = 40, .name = L"Velmora.exe", .openError = ERROR_ACCESS_DENIED});
    processes.Add({.id = 44, .name = L"Velmora.exe", .openError = ERROR_INVALID_PARAMETER});
    processes.Add({.id = 48, .name = L"Velmora.exe", .openError = ERROR_GEN_FAILURE});
    AddClient(52);

    EXPECT_FALSE(Stop());

    EXPECT_EQ(log.Lines(), (Lines{Found(40), Found(44), Found(48), Found(52), StillRunning(40), c_differentUser,
                                  StillRunning(44), c_alreadyClosed, StillRunning(48), c_openFailed + "-2147024865",
                                  StillRunning(52), c_terminated, c_stillRunning}));
    EXPECT_THAT(CallsOf({"open", "terminate"}),
                ElementsAre("open 1 40", "open 1 44", "open 1 48", "open 1 52", "terminate 52 0"));
}

TEST_F(StopRunningClientTest, looks_ten_times_a_second_apart_after_it_has_terminated)
{
    processes.Add({.id = 40, .name = L"Velmora.exe", .survives = true});

    EXPECT_FALSE(Stop());

    EXPECT_EQ(NewCalls(),
              (Walk(1) + ("log " + Found(40)) + "top 0" + 10 * (Walk(1) + "sleep 1000") +
               Calls{"log " + StillRunning(40), "open 1 40", "terminate 40 0", "log " + c_terminated, "close 40"} +
               10 * (Walk(1) + "sleep 1000") + ("log " + c_stillRunning)));
    EXPECT_EQ(log.Lines(), (Lines{Found(40), StillRunning(40), c_terminated, c_stillRunning}));
}

TEST_F(StopRunningClientTest, is_content_with_a_client_that_ends_by_the_last_look)
{
    processes.Add({.id = 40, .name = L"Velmora.exe", .survives = true});
    clock.At(18'999, [this] { processes.Remove(40); });

    EXPECT_TRUE(Stop());

    EXPECT_EQ(clock.Sleeps(), Pauses(19, 1000));
    EXPECT_EQ(log.Lines().back(), c_allTerminated);
}

TEST_F(StopRunningClientTest, logs_that_the_processes_cannot_be_listed)
{
    processes.FailSnapshots(INVALID_HANDLE_VALUE, ERROR_BAD_LENGTH);

    EXPECT_FALSE(Stop());

    ASSERT_EQ(log.Lines().size(), 1U);
    EXPECT_THAT(log.Lines().front(), StartsWith("|ERROR|:   [ClientHelper] Unable to stop running processes: "));
    EXPECT_THAT(log.Lines().front(), HasSubstr("80070018"));
    EXPECT_EQ(clock.Sleeps(), Pauses());
}

TEST_F(StopRunningClientTest, logs_that_the_processes_cannot_be_listed_any_more)
{
    AddClient(40);
    clock.At(2500, [this] { processes.FailSnapshots(nullptr, ERROR_NOT_ENOUGH_MEMORY); });

    EXPECT_FALSE(Stop());

    ASSERT_EQ(log.Lines().size(), 2U);
    EXPECT_THAT(log.Lines().back(), StartsWith("|ERROR|:   [ClientHelper] Unable to stop running processes: "));
    EXPECT_EQ(clock.Sleeps(), Pauses(3, 1000));
    EXPECT_THAT(failures.Entries(), ElementsAre(Pair("ClientHelper", HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY))));
}

TEST_F(StopRunningClientTest, logs_the_text_of_any_standard_exception)
{
    AddClient(40);
    const FakeCodePage western(1252);
    const Fake<&GetTopWindow> top = [](HWND) -> HWND { throw std::runtime_error("no luck \x80"); };

    EXPECT_FALSE(Stop());

    EXPECT_EQ(log.Lines(), (Lines{Found(40), "|ERROR|:   [ClientHelper] Unable to stop running processes: no luck ?"}));
}

TEST_F(StopRunningClientTest, lets_other_exceptions_pass)
{
    AddClient(40);
    const Fake<&GetTopWindow> top = [](HWND) -> HWND { throw 1; };

    EXPECT_THROW(Stop(), int);

    EXPECT_EQ(log.Lines(), (Lines{Found(40)}));
}

TEST_F(StopRunningClientTest, fails_when_memory_runs_out)
{
    const Fake<&CreateToolhelp32Snapshot> snapshot = [](DWORD, DWORD) -> HANDLE {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    };
    bool stopped = true;
    {
        const OutOfMemory outOfMemory;
        stopped = Stop();
    }

    EXPECT_FALSE(stopped);
}

TEST_F(StopRunningClientTest, walks_over_the_windows_once_for_each_client)
{
    constexpr std::size_t c_windows = 5000;
    for (DWORD id = 4; id < 2000; id += 4)
    {
        processes.Add({.id = id, .name = id % 400 == 0 ? L"Velmora.exe" : L"svchost.exe"});
    }
    for (std::uintptr_t handle = 1; handle <= c_windows; ++handle)
    {
        windows.Add({.handle = handle, .process = static_cast<DWORD>(handle % 500) * 4, .className = c_handler});
    }
    windows.walksAreSilent = true;

    EXPECT_TRUE(Stop());

    EXPECT_EQ(windows.WalkedOver(), 4 * c_windows);
    EXPECT_EQ(CallsOf({"post"}).size(), 4 * c_windows / 500);
    EXPECT_EQ(clock.Sleeps(), Pauses(10, 1000));
}

// A machine with an installation folder, from which nothing runs unless a test says so.
class DirectoryLockTest : public ClientHelperTest
{
protected:
    // Adds a process that runs a file, below the test's folder unless it is somewhere else altogether.
    void AddProgram(DWORD id, const std::wstring& path) { processes.Add(Program(id, path)); }

    FakeProcess Program(DWORD id, const std::wstring& path) const
    {
        const bool isFull = path.find_first_of(L":?") != std::wstring::npos;
        if (!isFull)
        {
            root.AddFile(path);
        }
        return {.id = id, .name = path.substr(path.find_last_of(L'\\') + 1), .image = isFull ? path : root / path};
    }

    static std::wstring InUpperCase(std::wstring text)
    {
        CharUpperW(text.data());
        return text;
    }

    TestFolder root;
    std::wstring folder = root.AddFolder(L"Velmora") + L"\\";
};

class FindProcessesLockingDirectoryTest : public DirectoryLockTest
{
};

TEST_F(FindProcessesLockingDirectoryTest, finds_what_was_started_from_the_folder_and_from_below)
{
    AddProgram(3400, L"Velmora\\b.exe");
    AddProgram(1200, L"Velmora\\bin\\deep\\a.exe");
    AddProgram(1300, L"Velmora\\..hidden.exe\\c.exe");
    AddProgram(1400, L"Velmora\\x.y\\d");

    EXPECT_THAT(FindProcessesLockingDirectory(folder),
                ElementsAre(Pair(1200, L"a.exe"), Pair(1400, L"d"), Pair(3400, L"b.exe")));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(FindProcessesLockingDirectoryTest, leaves_out_what_was_started_from_elsewhere)
{
    AddProgram(4, L"Velmora2\\a.exe");
    AddProgram(8, L"a.exe");
    AddProgram(12, L"Velmora.exe");
    AddProgram(16, L"Other\\Velmora\\a.exe");
    AddProgram(20, L"C:\\Windows\\explorer.exe");
    AddProgram(24, L"Q:" + folder.substr(2) + L"a.exe");
    AddProgram(28, L"\\\\?\\Volume{12}" + folder.substr(2) + L"a.exe");
    processes.Add({.id = 32, .name = L"Velmora", .image = root / L"Velmora"});

    EXPECT_EQ(FindProcessesLockingDirectory(folder), Lockers());
}

TEST_F(FindProcessesLockingDirectoryTest, leaves_out_what_lies_behind_a_full_stop)
{
    AddProgram(4, L"Velmora\\.hidden\\a.exe");
    AddProgram(8, L"Velmora\\.a.exe");
    AddProgram(12, L"Velmora\\bin\\.hidden\\b.exe");

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(12, L"b.exe")));
}

TEST_F(FindProcessesLockingDirectoryTest, knows_the_folder_in_any_spelling)
{
    AddProgram(4, L"Velmora\\bin\\a.exe");
    processes.Add({.id = 8, .name = L"b.exe", .image = InUpperCase(root.AddFile(L"Velmora\\b.exe"))});

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(4, L"a.exe"), Pair(8, L"b.exe")));
    EXPECT_THAT(FindProcessesLockingDirectory(root / L"Velmora"), ElementsAre(Pair(4, L"a.exe"), Pair(8, L"b.exe")));
    EXPECT_THAT(FindProcessesLockingDirectory(InUpperCase(folder)), ElementsAre(Pair(4, L"a.exe"), Pair(8, L"b.exe")));
}

TEST_F(FindProcessesLockingDirectoryTest, knows_the_folder_through_a_link)
{
    AddProgram(4, L"Velmora\\a.exe");
    ASSERT_TRUE(CreateDirectoryLink(root / L"link", root / L"Velmora"));
    processes.Add({.id = 8, .name = L"b.exe", .image = root.AddFile(L"link\\b.exe")});

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(4, L"a.exe"), Pair(8, L"b.exe")));
    EXPECT_THAT(FindProcessesLockingDirectory(root / L"link"), ElementsAre(Pair(4, L"a.exe"), Pair(8, L"b.exe")));
}

TEST_F(FindProcessesLockingDirectoryTest, finds_what_runs_from_a_file_that_is_not_there_any_more)
{
    processes.Add({.id = 4, .name = L"gone.exe", .image = InUpperCase(folder) + L"bin\\gone.exe"});

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(4, L"gone.exe")));
}

TEST_F(FindProcessesLockingDirectoryTest, knows_the_folder_with_a_prefix_and_with_a_long_path)
{
    const std::wstring name = L"Velmora\\" + std::wstring(200, L'a') + L"\\" + std::wstring(200, L'b');
    AddProgram(4, name + L"\\a.exe");
    const PathLimits limits;

    for (const std::wstring& directory : {folder, L"\\\\?\\" + folder, L"//?/" + folder, root / name})
    {
        EXPECT_THAT(FindProcessesLockingDirectory(directory), ElementsAre(Pair(4, L"a.exe"))) << directory;
        EXPECT_THAT(FindProcessesLockingDirectory(directory + L"2"), IsEmpty()) << directory;
    }
}

TEST_F(FindProcessesLockingDirectoryTest, leaves_out_its_own_process)
{
    AddProgram(c_self, L"Velmora\\Velmora.Uninstaller.exe");

    EXPECT_EQ(FindProcessesLockingDirectory(folder), Lockers());
    EXPECT_EQ(NewCalls(), Walk(1));
}

TEST_F(FindProcessesLockingDirectoryTest, leaves_out_the_process_that_went_on_as_this_one)
{
    AddProgram(70, L"Velmora\\Velmora.Uninstaller.exe");
    AddProgram(71, L"Velmora\\a.exe");

    EXPECT_THAT(FindProcessesLockingDirectory(folder, 70), ElementsAre(Pair(71, L"a.exe")));
    EXPECT_EQ(NewCalls(), Walk({{}, {"open 1000 71", "image 0 71", "close 71"}}));
}

TEST_F(FindProcessesLockingDirectoryTest, does_not_look_at_the_first_process)
{
    processes.PutFirst(Program(4, L"Velmora\\a.exe"));

    EXPECT_EQ(FindProcessesLockingDirectory(folder), Lockers());
    EXPECT_EQ(NewCalls(), Walk(0));
}

TEST_F(FindProcessesLockingDirectoryTest, keeps_the_first_name_of_an_id_that_was_given_twice)
{
    AddProgram(4, L"Velmora\\a.exe");
    AddProgram(4, L"Velmora\\b.exe");

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(4, L"a.exe")));
}

TEST_F(FindProcessesLockingDirectoryTest, asks_each_process_for_its_file_and_closes_it)
{
    AddProgram(8, L"Velmora\\a.exe");
    AddProgram(4, L"C:\\Windows\\explorer.exe");

    FindProcessesLockingDirectory(folder);

    EXPECT_EQ(NewCalls(), Walk({{"open 1000 8", "image 0 8", "close 8"}, {"open 1000 4", "image 0 4", "close 4"}}));
}

TEST_F(FindProcessesLockingDirectoryTest, leaves_out_silently_what_cannot_be_examined)
{
    FakeProcess notOpened = Program(4, L"Velmora\\a.exe");
    notOpened.openError = ERROR_ACCESS_DENIED;
    FakeProcess withoutImage = Program(8, L"Velmora\\b.exe");
    withoutImage.imageError = ERROR_GEN_FAILURE;
    processes.Add(notOpened);
    processes.Add(withoutImage);
    AddProgram(12, L"Velmora\\c.exe");

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(12, L"c.exe")));

    EXPECT_EQ(
        NewCalls(),
        Walk({{"open 1000 4"}, {"open 1000 8", "image 0 8", "close 8"}, {"open 1000 12", "image 0 12", "close 12"}}));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(FindProcessesLockingDirectoryTest, leaves_out_silently_what_cannot_be_resolved)
{
    AddProgram(4, L"Velmora\\closed.exe");
    AddProgram(8, L"Velmora\\open.exe");
    const Fake<&CreateFileW> create = [](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                         DWORD disposition, DWORD flags, HANDLE pattern) {
        if (std::wstring(path).ends_with(L"closed.exe"))
        {
            SetLastError(ERROR_ACCESS_DENIED);
            return INVALID_HANDLE_VALUE;
        }
        return Fake<&CreateFileW>::Real(path, access, sharing, security, disposition, flags, pattern);
    };

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(8, L"open.exe")));

    EXPECT_THAT(failures.Entries(), IsEmpty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(FindProcessesLockingDirectoryTest, finds_nothing_when_the_folder_cannot_be_resolved)
{
    AddProgram(4, L"Velmora\\a.exe");
    const Fake<&CreateFileW> create = [this](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                             DWORD disposition, DWORD flags, HANDLE pattern) {
        if (path == L"\\\\?\\" + folder)
        {
            SetLastError(ERROR_ACCESS_DENIED);
            return INVALID_HANDLE_VALUE;
        }
        return Fake<&CreateFileW>::Real(path, access, sharing, security, disposition, flags, pattern);
    };

    EXPECT_EQ(FindProcessesLockingDirectory(folder), Lockers());
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(FindProcessesLockingDirectoryTest, leaves_out_what_cannot_be_examined_for_any_reason_at_all)
{
    AddProgram(4, L"Velmora\\standard.exe");
    AddProgram(8, L"Velmora\\other.exe");
    AddProgram(12, L"Velmora\\a.exe");
    const Fake<&CreateFileW> create = [](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                         DWORD disposition, DWORD flags, HANDLE pattern) {
        if (std::wstring(path).ends_with(L"standard.exe"))
        {
            throw std::bad_alloc();
        }
        if (std::wstring(path).ends_with(L"other.exe"))
        {
            throw 1;
        }
        return Fake<&CreateFileW>::Real(path, access, sharing, security, disposition, flags, pattern);
    };

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(12, L"a.exe")));

    EXPECT_THAT(CallsOf({"close"}), ElementsAre("close 4", "close 8", "close 12", "close snapshot"));
}

TEST_F(FindProcessesLockingDirectoryTest, finds_nothing_in_a_snapshot_that_cannot_be_read)
{
    AddProgram(4, L"Velmora\\a.exe");
    processes.FailFirst();

    EXPECT_EQ(FindProcessesLockingDirectory(folder), Lockers());
    EXPECT_THAT(NewCalls(), ElementsAre("snapshot 2 0", "first 568", "close snapshot"));
}

TEST_F(FindProcessesLockingDirectoryTest, throws_the_last_error_when_there_is_no_snapshot)
{
    for (const HANDLE result : {HANDLE{nullptr}, INVALID_HANDLE_VALUE})
    {
        processes.FailSnapshots(result, ERROR_BAD_LENGTH);
        try
        {
            FindProcessesLockingDirectory(folder);
            FAIL() << "nothing was thrown";
        }
        catch (const wil::ResultException& exception)
        {
            EXPECT_EQ(exception.GetErrorCode(), HRESULT_FROM_WIN32(ERROR_BAD_LENGTH));
        }
        EXPECT_THAT(NewCalls(), ElementsAre("snapshot 2 0"));
    }
    EXPECT_THAT(failures.Entries(), ElementsAre(Pair("ClientHelper", HRESULT_FROM_WIN32(ERROR_BAD_LENGTH)),
                                                Pair("ClientHelper", HRESULT_FROM_WIN32(ERROR_BAD_LENGTH))));
}

TEST_F(FindProcessesLockingDirectoryTest, opens_each_file_once_and_the_folder_once)
{
    const std::wstring image = root.AddFile(L"Velmora\\a.exe");
    for (DWORD id = 4; id <= 2000; id += 4)
    {
        processes.Add({.id = id, .name = L"a.exe", .image = image});
    }
    unsigned opened = 0;
    const Fake<&CreateFileW> create = [&](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                          DWORD disposition, DWORD flags, HANDLE pattern) {
        ++opened;
        return Fake<&CreateFileW>::Real(path, access, sharing, security, disposition, flags, pattern);
    };

    EXPECT_EQ(FindProcessesLockingDirectory(folder).size(), 500U);

    EXPECT_EQ(opened, 501U);
}

const std::string c_list = "|WARNING|: [ClientHelper] The following processes were found locking the directory:";
const std::string c_silent = "|INFO|:    [ClientHelper] Running as silent, cannot prompt user to terminate these "
                             "processes, so terminating automatically...";
const std::string c_terminating = "|INFO|:    [ClientHelper] Attempting to terminate processes...";
const std::string c_success = "|INFO|:    [ClientHelper] Success!";
const std::string c_noLockers = "|INFO|:    [ClientHelper] No processes found locking the directory.";
const std::string c_noFolder = "|INFO|:    [ClientHelper] Directory does not exist, cannot be locked!";
const std::string c_retry = "|INFO|:    [ClientHelper] User prompted to retry...";
const std::string c_canceled = "|INFO|:    [ClientHelper] User canceled the uninstaller.";
const std::string c_checkFailed =
    "captured |ERROR|:   [ClientHelper] Unable to determine if processes are locking directory: ";

std::string Item(DWORD id, const std::string& name)
{
    return "|WARNING|: " + std::string(17, ' ') + "- " + name + " (Pid: " + std::to_string(id) + ")";
}

std::string Terminating(const std::string& name)
{
    return "|INFO|:    [ClientHelper] Terminating " + name + "...";
}

class CheckDirectoryLockedTest : public DirectoryLockTest
{
protected:
    bool Check(const std::wstring& directory) { return CheckDirectoryLocked(directory, log.Logger(), false, c_owner); }
    bool Check() { return Check(folder); }
    bool CheckSilently() { return CheckDirectoryLocked(folder, log.Logger(), true, c_owner); }

    std::string Checking() const
    {
        return "|INFO|:    [ClientHelper] Checking if directory is locked: " + Narrow(folder);
    }

    // The log up to the answer of the user, with the programs in the folder.
    Lines Listed(const Lines& items) const { return Lines{Checking(), c_list} + items; }

    const HWND c_owner = reinterpret_cast<HWND>(ULONG_PTR{0x77});
    FakeTaskDialog dialog;
};

TEST_F(CheckDirectoryLockedTest, takes_a_folder_that_is_not_there_for_free)
{
    EXPECT_TRUE(Check(root / L"missing\\"));

    EXPECT_EQ(log.Lines(),
              (Lines{"|INFO|:    [ClientHelper] Checking if directory is locked: " + Narrow(root / L"missing\\"),
                     c_noFolder}));
    EXPECT_THAT(CallsOf({"snapshot"}), IsEmpty());
}

TEST_F(CheckDirectoryLockedTest, takes_a_file_for_no_folder)
{
    EXPECT_TRUE(Check(root.AddFile(L"file")));

    EXPECT_EQ(log.Lines().back(), c_noFolder);
    EXPECT_THAT(CallsOf({"snapshot"}), IsEmpty());
}

TEST_F(CheckDirectoryLockedTest, says_that_no_process_was_found)
{
    AddProgram(4, L"Velmora2\\a.exe");

    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(), (Lines{Checking(), c_noLockers}));
}

TEST_F(CheckDirectoryLockedTest, terminates_without_asking_in_a_silent_run)
{
    AddProgram(3400, L"Velmora\\b.exe");
    AddProgram(1200, L"Velmora\\bin\\a.exe");

    EXPECT_TRUE(CheckSilently());

    EXPECT_EQ(
        NewCalls(),
        (Calls{"log " + Checking()} +
         Walk({{"open 1000 3400", "image 0 3400", "close 3400"}, {"open 1000 1200", "image 0 1200", "close 1200"}}) +
         Calls{"log " + c_list, "log " + Item(1200, "a.exe"), "log " + Item(3400, "b.exe"), "log " + c_silent,
               "log " + c_terminating, "log " + Terminating("a.exe"), "open 1 1200", "terminate 1200 0",
               "log " + c_success, "close 1200", "log " + Terminating("b.exe"), "open 1 3400", "terminate 3400 0",
               "log " + c_success, "close 3400"}));
    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), Item(3400, "b.exe"), c_silent, c_terminating,
                                   Terminating("a.exe"), c_success, Terminating("b.exe"), c_success}));
}

TEST_F(CheckDirectoryLockedTest, asks_the_user_with_the_processes_on_one_line)
{
    AddProgram(3400, L"Velmora\\b.exe");
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer({.button = IDCANCEL});

    EXPECT_FALSE(Check());

    EXPECT_THAT(
        dialog.Shown(),
        ElementsAre(ShownTaskDialog{
            .size = sizeof(TASKDIALOGCONFIG),
            .owner = c_owner,
            .module = GetModuleHandleW(nullptr),
            .flags = 0x01000000,
            .title = L"Velmora",
            .mainIcon = L"#101",
            .mainInstruction = L"Uninstall Velmora",
            .content = L"There are programs preventing Velmora from uninstalling. You can press Continue and Velmora "
                       L"will attempt to close them automatically, otherwise if you have closed them yourself, press "
                       L"Retry for Velmora to try again.",
            .buttons = {{4, L"Retry"}, {11, L"Continue"}, {2, L"Cancel"}},
            .defaultButton = 2,
            .footer = L"[1200] a.exe[3400] b.exe"}));
}

TEST_F(CheckDirectoryLockedTest, writes_the_ids_of_processes_without_a_sign)
{
    AddProgram(0x80000004, L"Velmora\\a.exe");
    AddProgram(0xFFFFFFFC, L"Velmora\\b.exe");
    dialog.Answer({.button = IDCANCEL});

    EXPECT_FALSE(Check());

    EXPECT_EQ(dialog.Shown().front().footer, L"[2147483652] a.exe[4294967292] b.exe");
    EXPECT_EQ(log.Lines(), Listed({"|WARNING|:                  - a.exe (Pid: 2147483652)",
                                   "|WARNING|:                  - b.exe (Pid: 4294967292)", c_canceled}));
}

TEST_F(CheckDirectoryLockedTest, keeps_a_name_with_a_line_break_on_the_line)
{
    FakeProcess program = Program(1200, L"Velmora\\a.exe");
    program.name = L"a\n.exe\n";
    processes.Add(program);
    dialog.Answer({.button = IDCANCEL});

    EXPECT_FALSE(Check());

    EXPECT_EQ(dialog.Shown().front().footer, L"[1200] a.exe");
}

TEST_F(CheckDirectoryLockedTest, asks_without_an_owner_when_there_is_none)
{
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer({.button = IDCANCEL});

    EXPECT_FALSE(CheckDirectoryLocked(folder, log.Logger(), false, nullptr));

    EXPECT_EQ(dialog.Shown().front().owner, nullptr);
}

TEST_F(CheckDirectoryLockedTest, terminates_nothing_when_the_user_cancels)
{
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer({.button = IDCANCEL});

    EXPECT_FALSE(Check());

    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), c_canceled}));
    EXPECT_THAT(CallsOf({"open 1 ", "terminate"}), IsEmpty());
}

TEST_F(CheckDirectoryLockedTest, terminates_what_it_found_when_the_user_continues)
{
    AddProgram(1200, L"Velmora\\a.exe");
    AddProgram(1300, L"Velmora\\b.exe");
    dialog.Answer({.button = IDCONTINUE, .whileShown = [this] {
                       processes.Remove(1200);
                       AddProgram(1400, L"Velmora\\c.exe");
                   }});

    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), Item(1300, "b.exe"), c_terminating, Terminating("a.exe"),
                                   c_alreadyClosed, Terminating("b.exe"), c_success}));
    EXPECT_THAT(CallsOf({"open 1 ", "terminate"}), ElementsAre("open 1 1200", "open 1 1300", "terminate 1300 0"));
    EXPECT_EQ(CallsOf({"snapshot"}).size(), 1U);
    EXPECT_EQ(clock.Sleeps(), Pauses());
}

TEST_F(CheckDirectoryLockedTest, checks_anew_at_every_retry)
{
    AddProgram(1200, L"Velmora\\a.exe");
    AddProgram(1300, L"Velmora\\b.exe");
    dialog.Answer({.button = IDRETRY});
    dialog.Answer({.button = IDRETRY, .whileShown = [this] {
                       processes.Remove(1200);
                       AddProgram(1400, L"Velmora\\c.exe");
                   }});
    dialog.Answer({.button = IDRETRY, .whileShown = [this] {
                       processes.Remove(1300);
                       processes.Remove(1400);
                   }});

    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(),
              (Listed({Item(1200, "a.exe"), Item(1300, "b.exe"), c_retry}) +
               Listed({Item(1200, "a.exe"), Item(1300, "b.exe"), c_retry}) +
               Listed({Item(1300, "b.exe"), Item(1400, "c.exe"), c_retry}) + Lines{Checking(), c_noLockers}));
    ASSERT_EQ(dialog.Shown().size(), 3U);
    EXPECT_EQ(dialog.Shown()[1], dialog.Shown()[0]);
    EXPECT_EQ(dialog.Shown()[2].footer, L"[1300] b.exe[1400] c.exe");
    EXPECT_EQ(dialog.Shown()[2].owner, c_owner);
}

TEST_F(CheckDirectoryLockedTest, goes_by_the_last_answer_after_a_retry)
{
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer({.button = IDRETRY});
    dialog.Answer({.button = IDCONTINUE});

    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), c_retry}) +
                               Listed({Item(1200, "a.exe"), c_terminating, Terminating("a.exe"), c_success}));

    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer({.button = IDRETRY});
    dialog.Answer({.button = IDCANCEL});

    EXPECT_FALSE(Check());

    EXPECT_EQ(log.Lines().back(), c_canceled);
}

TEST_F(CheckDirectoryLockedTest, leaves_the_process_alone_that_went_on_as_this_one)
{
    AddProgram(70, L"Velmora\\Velmora.Uninstaller.exe");

    EXPECT_TRUE(CheckDirectoryLocked(folder, log.Logger(), true, nullptr, 70));

    EXPECT_EQ(log.Lines(), (Lines{Checking(), c_noLockers}));
    EXPECT_THAT(CallsOf({"terminate"}), IsEmpty());
}

TEST_F(CheckDirectoryLockedTest, leaves_that_process_alone_at_a_retry_too)
{
    AddProgram(70, L"Velmora\\Velmora.Uninstaller.exe");
    AddProgram(71, L"Velmora\\a.exe");
    dialog.Answer({.button = IDRETRY});
    dialog.Answer({.button = IDCONTINUE});

    EXPECT_TRUE(CheckDirectoryLocked(folder, log.Logger(), false, c_owner, 70));

    EXPECT_THAT(CallsOf({"terminate"}), ElementsAre("terminate 71 0"));
    EXPECT_EQ(dialog.Shown().size(), 2U);
}

TEST_F(CheckDirectoryLockedTest, is_content_when_the_folder_is_gone_at_a_retry)
{
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer({.button = IDRETRY, .whileShown = [this] { RemoveTestFolder(root / L"Velmora"); }});

    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(), (Listed({Item(1200, "a.exe"), c_retry}) + Lines{Checking(), c_noFolder}));
}

TEST_F(CheckDirectoryLockedTest, terminates_nothing_after_an_unknown_button)
{
    AddProgram(1200, L"Velmora\\a.exe");
    for (const int button : {0, 1, 3, 5, 6, 7, 8, 10, 12, 101, -4})
    {
        dialog.Answer({.button = button});

        EXPECT_FALSE(Check());

        EXPECT_EQ(log.Lines().back(),
                  "|WARNING|: [ClientHelper] Unknown button event from task dialog, continuing with termination: " +
                      std::to_string(button));
    }
    EXPECT_THAT(CallsOf({"open 1 ", "terminate"}), IsEmpty());
}

TEST_F(CheckDirectoryLockedTest, terminates_when_the_user_cannot_be_asked)
{
    for (const auto& [result, number] : {std::pair(E_OUTOFMEMORY, "-2147024882"), std::pair(S_FALSE, "1")})
    {
        const std::size_t before = log.Lines().size();
        AddProgram(1200, L"Velmora\\a.exe");
        dialog.Answer({.result = result, .button = IDCANCEL});

        EXPECT_TRUE(Check());

        EXPECT_EQ(Lines(log.Lines().begin() + static_cast<std::ptrdiff_t>(before), log.Lines().end()),
                  Listed({Item(1200, "a.exe"),
                          std::string("captured |WARNING|: [ClientHelper] Unable to prompt user to terminate these "
                                      "processes, continuing with termination: ") +
                              number,
                          c_terminating, Terminating("a.exe"), c_success}));
        EXPECT_FALSE(processes.Find(1200));
    }
}

TEST_F(CheckDirectoryLockedTest, fails_for_a_process_of_another_user_and_goes_on)
{
    FakeProcess program = Program(1200, L"Velmora\\a.exe");
    program.openToTerminateError = ERROR_ACCESS_DENIED;
    processes.Add(program);
    AddProgram(1300, L"Velmora\\b.exe");

    EXPECT_FALSE(CheckSilently());

    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), Item(1300, "b.exe"), c_silent, c_terminating,
                                   Terminating("a.exe"), c_differentUser, Terminating("b.exe"), c_success}));
    EXPECT_FALSE(processes.Find(1300));
}

TEST_F(CheckDirectoryLockedTest, is_content_with_a_process_that_is_gone)
{
    FakeProcess program = Program(1200, L"Velmora\\a.exe");
    program.openToTerminateError = ERROR_INVALID_PARAMETER;
    processes.Add(program);

    EXPECT_TRUE(CheckSilently());

    EXPECT_EQ(log.Lines(),
              Listed({Item(1200, "a.exe"), c_silent, c_terminating, Terminating("a.exe"), c_alreadyClosed}));
}

TEST_F(CheckDirectoryLockedTest, fails_and_reports_when_a_process_cannot_be_opened_and_goes_on)
{
    FakeProcess program = Program(1200, L"Velmora\\a.exe");
    program.openToTerminateError = ERROR_GEN_FAILURE;
    processes.Add(program);
    AddProgram(1300, L"Velmora\\b.exe");

    EXPECT_FALSE(CheckSilently());

    EXPECT_EQ(log.Lines(),
              Listed({Item(1200, "a.exe"), Item(1300, "b.exe"), c_silent, c_terminating, Terminating("a.exe"),
                      "captured " + c_openFailed + "-2147024865", Terminating("b.exe"), c_success}));
}

TEST_F(CheckDirectoryLockedTest, takes_a_process_whose_termination_is_denied_for_gone)
{
    FakeProcess program = Program(1200, L"Velmora\\a.exe");
    program.terminateError = ERROR_ACCESS_DENIED;
    processes.Add(program);

    EXPECT_TRUE(CheckSilently());

    EXPECT_EQ(log.Lines(),
              Listed({Item(1200, "a.exe"), c_silent, c_terminating, Terminating("a.exe"),
                      "|ERROR|:   [ClientHelper] Process termination failed with E_ACCESSDENIED, it's possible this "
                      "process has already been terminated? We will assume so."}));
    EXPECT_THAT(CallsOf({"open 1 ", "terminate", "close 1200"}),
                ElementsAre("close 1200", "open 1 1200", "terminate 1200 0", "close 1200"));
}

TEST_F(CheckDirectoryLockedTest, fails_and_reports_when_a_process_cannot_be_terminated_and_goes_on)
{
    FakeProcess program = Program(1200, L"Velmora\\a.exe");
    program.terminateError = ERROR_INVALID_PARAMETER;
    processes.Add(program);
    AddProgram(1300, L"Velmora\\b.exe");

    EXPECT_FALSE(CheckSilently());

    EXPECT_EQ(log.Lines(),
              Listed({Item(1200, "a.exe"), Item(1300, "b.exe"), c_silent, c_terminating, Terminating("a.exe"),
                      "captured |ERROR|:   [ClientHelper] Failed to terminate process: -2147024809",
                      Terminating("b.exe"), c_success}));
    EXPECT_THAT(CallsOf({"open 1 ", "terminate", "close 1"}),
                ElementsAre("close 1200", "close 1300", "open 1 1200", "terminate 1200 0", "close 1200", "open 1 1300",
                            "terminate 1300 0", "close 1300"));
}

TEST_F(CheckDirectoryLockedTest, lets_the_removal_go_on_when_the_processes_cannot_be_listed)
{
    processes.FailSnapshots(INVALID_HANDLE_VALUE, ERROR_BAD_LENGTH);

    EXPECT_TRUE(Check());

    ASSERT_EQ(log.Lines().size(), 2U);
    EXPECT_EQ(log.Lines().front(), Checking());
    EXPECT_THAT(log.Lines().back(), StartsWith(c_checkFailed));
    EXPECT_THAT(log.Lines().back(), HasSubstr("80070018"));
}

TEST_F(CheckDirectoryLockedTest, lets_the_removal_go_on_when_the_processes_cannot_be_listed_at_a_retry)
{
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer(
        {.button = IDRETRY, .whileShown = [this] { processes.FailSnapshots(nullptr, ERROR_NOT_ENOUGH_MEMORY); }});

    EXPECT_TRUE(Check());

    ASSERT_EQ(log.Lines().size(), 6U);
    EXPECT_THAT(log.Lines().back(), StartsWith(c_checkFailed));
}

TEST_F(CheckDirectoryLockedTest, logs_the_text_of_any_standard_exception)
{
    AddProgram(1200, L"Velmora\\a.exe");
    const FakeCodePage western(1252);
    dialog.Answer({.whileShown = [] { throw std::runtime_error("no luck \x80"); }});

    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), c_checkFailed + "no luck ?"}));
}

TEST_F(CheckDirectoryLockedTest, logs_any_other_exception)
{
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer({.whileShown = [] { throw 1; }});

    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), c_checkFailed + "Unhandled Exception"}));
}

TEST_F(CheckDirectoryLockedTest, lets_the_removal_go_on_when_memory_runs_out)
{
    bool isFree = false;
    {
        const OutOfMemory outOfMemory;
        isFree = Check(folder);
    }

    EXPECT_TRUE(isFree);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

} // namespace
