#include "Installer/ClientHelper.h"

#include "support/FakeCodePage.h"
#include "support/OutOfMemory.h"
#include "support/ProcessesTest.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <wil/result.h>

#include <initializer_list>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
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

constexpr wchar_t c_handler[] = L"Velmora_NotifyIcon_Handler_1";

const std::string c_asked = "|INFO|:    [ClientHelper] Attempting to close Velmora via notify icon handler...";
const std::string c_ended = "|INFO|:    [ClientHelper] Velmora process has terminated successfully.";
const std::string c_terminated = "|INFO|:    [ClientHelper] Velmora process forcefully terminated.";
const std::string c_allTerminated = "|INFO|:    [ClientHelper] Velmora process has been successfully terminated.";
const std::string c_stillRunning =
    "|ERROR|:   [ClientHelper] Velmora process is still running after force termination attempt.";

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

class FindRunningClientProcessesTest : public ProcessesTest
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

class StopRunningClientTest : public ProcessesTest
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

} // namespace
