#include "Installer/ClientHelper.h"

#include "support/unit/FakeCodePage.h"
#include "support/unit/OutOfMemory.h"
#include "support/unit/ProcessesTest.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
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
const std::string c_notSent = "|WARNING|: [ClientHelper] Failed to send message: ";

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

// What is asked of a window, by its handle.
std::string Owner(const std::string& window)
{
    return "GetWindowThreadProcessId(" + window + ")";
}
std::string Next(const std::string& window)
{
    return "GetWindow(" + window + ", 2)";
}
std::string Class(const std::string& window)
{
    return "GetClassNameW(" + window + ", 512)";
}
std::string Post(const std::string& window)
{
    return "PostMessageW(" + window + ", 273, 50001, 0)";
}

class FindRunningClientProcessesTest : public ProcessesTest
{
};

TEST_F(FindRunningClientProcessesTest, Knows_the_clients_by_their_exact_names)
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

TEST_F(FindRunningClientProcessesTest, Gives_each_id_but_its_own_once_in_ascending_order)
{
    for (const DWORD id : std::initializer_list<DWORD>{4000, c_self, 12, 0x80000004, 8, c_self + 1, 12, 4000})
    {
        processes.Add({.id = id, .name = L"Velmora.exe"});
    }

    EXPECT_THAT(FindRunningClientProcesses(), ElementsAre(8, 12, 4000, c_self + 1, 0x80000004));
    EXPECT_EQ(journal.All(), Walk(8));
}

TEST_F(FindRunningClientProcessesTest, Throws_the_last_error_when_there_is_no_snapshot)
{
    journal.Fail("CreateToolhelp32Snapshot", ERROR_BAD_LENGTH);

    EXPECT_THAT([] { FindRunningClientProcesses(); }, ThrowsResult(HRESULT_FROM_WIN32(ERROR_BAD_LENGTH)));
    EXPECT_THAT(failures.Entries(), ElementsAre(Pair("ClientHelper", HRESULT_FROM_WIN32(ERROR_BAD_LENGTH))));
}

class StopRunningClientTest : public ProcessesTest
{
protected:
    bool Stop() { return StopRunningClient(log.Logger()); }

    void AddClient(DWORD id, const std::wstring& name = L"Velmora.exe") { processes.Add({.id = id, .name = name}); }
    void AddStubbornClient(DWORD id) { processes.Add({.id = id, .name = L"Velmora.exe", .survives = true}); }
    void AddWindow(std::uintptr_t window, DWORD process, const std::wstring& className = c_handler)
    {
        windows.Add({.handle = window, .process = process, .className = className});
    }

    // Adds a client that closes some time after it was asked to, in milliseconds.
    void AddClientThatCloses(DWORD id, std::uintptr_t window, ULONGLONG afterMilliseconds)
    {
        AddClient(id);
        AddWindow(window, id);
        windows.onPost = [=, this](std::uintptr_t) {
            clock.At(clock.Now() + afterMilliseconds, [=, this] { processes.Remove(id); });
        };
    }

    // What was asked of windows that are to be closed.
    Calls Asked() const { return journal.CallsOf({"GetClassNameW", "PostMessageW"}); }
    Calls Terminations() const { return journal.CallsOf({"OpenProcess", "TerminateProcess"}); }
};

TEST_F(StopRunningClientTest, Looks_once_and_says_nothing_when_no_client_is_running)
{
    processes.Add({.id = 8, .name = L"velmora.exe"});
    AddWindow(0x10, 8);

    EXPECT_TRUE(Stop());

    EXPECT_EQ(journal.All(), Walk(1));
}

TEST_F(StopRunningClientTest, Asks_the_client_to_close_and_sees_it_end)
{
    processes.Add({.id = 4, .name = L"System"});
    AddWindow(0x10, 4, L"Desktop");
    AddClientThatCloses(40, 0x20, 800);
    AddWindow(0x30, 40, L"Main window");

    EXPECT_TRUE(Stop());

    EXPECT_TRUE(AreEqual(journal.All(), Walk(2) + Logged({Found(40)}) +
                                            Calls{"GetTopWindow(null)", Owner("0x10"), Next("0x10"), Owner("0x20"),
                                                  Next("0x20"), Owner("0x30"), Next("0x30"), Class("0x20")} +
                                            Logged({c_asked}) + Calls{Post("0x20"), Class("0x30")} + Walk(2) +
                                            "Sleep(1000)" + Walk(1) + Logged({c_ended})));
}

TEST_F(StopRunningClientTest, Terminates_a_client_that_does_not_close)
{
    AddClientThatCloses(40, 0x20, 60'000);

    EXPECT_TRUE(Stop());

    EXPECT_TRUE(AreEqual(journal.All(), Walk(1) + Logged({Found(40)}) +
                                            Calls{"GetTopWindow(null)", Owner("0x20"), Next("0x20"), Class("0x20")} +
                                            Logged({c_asked}) + Post("0x20") + 10 * (Walk(1) + "Sleep(1000)") +
                                            Logged({StillRunning(40)}) + "OpenProcess(0x1, 40)" +
                                            "TerminateProcess(40, 0)" + Logged({c_terminated}) + "CloseHandle(40)" +
                                            Walk(0) + Logged({c_allTerminated})));
    EXPECT_EQ(log.Lines(), (Lines{Found(40), c_asked, StillRunning(40), c_terminated, c_allTerminated}));
}

TEST_F(StopRunningClientTest, Asks_all_clients_in_the_order_of_their_ids_and_their_windows_in_that_of_the_handles)
{
    constexpr DWORD c_last = 0x80000050; // without a sign in the log
    AddClient(c_last, L"Orvane.exe");
    AddClient(40);
    AddClient(44);
    AddWindow(0x50, c_last);
    AddWindow(0x48, 40);
    AddWindow(0x90, 40);
    AddWindow(0x20, c_last, L"Other");
    AddWindow(0x30, 40);
    AddWindow(0x10, c_last);
    AddWindow(0x08, 4);

    EXPECT_TRUE(Stop());

    EXPECT_EQ(Asked(), (Calls{Class("0x30"), Post("0x30"), Class("0x48"), Post("0x48"), Class("0x90"), Post("0x90"),
                              Class("0x10"), Post("0x10"), Class("0x20"), Class("0x50"), Post("0x50")}));
    EXPECT_EQ(log.Lines(), (Lines{Found(40), c_asked, c_asked, c_asked, Found(44), Found(c_last), c_asked, c_asked,
                                  StillRunning(40), c_terminated, StillRunning(44), c_terminated, StillRunning(c_last),
                                  c_terminated, c_allTerminated}));
    EXPECT_EQ(journal.CallsOf({"GetTopWindow"}).size(), 3U);
    EXPECT_EQ(Terminations(),
              (Calls{"OpenProcess(0x1, 40)", "TerminateProcess(40, 0)", "OpenProcess(0x1, 44)",
                     "TerminateProcess(44, 0)", "OpenProcess(0x1, 2147483728)", "TerminateProcess(2147483728, 0)"}));
}

TEST_F(StopRunningClientTest, Knows_the_window_by_the_beginning_of_its_class)
{
    AddClient(40);
    std::uintptr_t handle = 0;
    for (const wchar_t* const name :
         {L"Velmora_NotifyIcon_Handler_", L"Velmora_NotifyIcon_Handler_any", L"Velmora_NotifyIcon_Handler",
          L"velmora_NotifyIcon_Handler_1", L"Velmora_NotifyIcon_handler_1", L"xVelmora_NotifyIcon_Handler_1",
          L"Velmora_NotifyIcon_Handler 1", L""})
    {
        AddWindow(++handle, 40, name);
    }
    AddWindow(++handle, 40, c_handler + std::wstring(230, L'x'));

    Stop();

    EXPECT_THAT(journal.CallsOf({"PostMessageW"}), ElementsAre(Post("0x1"), Post("0x2"), Post("0x9")));
}

TEST_F(StopRunningClientTest, Goes_on_when_a_message_cannot_be_posted)
{
    AddClient(40);
    AddClient(44);
    AddWindow(0x10, 40);
    AddWindow(0x20, 40);
    AddWindow(0x30, 44);
    journal.Fail(Post("0x10"), ERROR_ACCESS_DENIED);
    journal.Fail(Post("0x20"), ERROR_NOT_ENOUGH_QUOTA);
    clock.At(500, [this] {
        processes.Remove(40);
        processes.Remove(44);
    });

    EXPECT_TRUE(Stop());

    EXPECT_EQ(log.Lines(), (Lines{Found(40), c_asked, c_notSent + "-2147024891", c_asked, c_notSent + "-2147023080",
                                  Found(44), c_asked, c_ended}));
    EXPECT_THAT(journal.CallsOf({"PostMessageW"}), ElementsAre(Post("0x10"), Post("0x20"), Post("0x30")));
}

TEST_F(StopRunningClientTest, Leaves_alone_a_window_that_is_gone_before_its_class_is_read)
{
    AddClient(40);
    AddWindow(0x10, 40);
    AddWindow(0x20, 40);
    windows.onPost = [this](std::uintptr_t) { windows.Remove(0x20); };

    EXPECT_TRUE(Stop());

    EXPECT_THAT(Asked(), ElementsAre(Class("0x10"), Post("0x10"), Class("0x20")));
}

TEST_F(StopRunningClientTest, Asks_the_windows_that_it_found_before_one_went_away_under_it)
{
    AddClient(40);
    AddWindow(0x10, 40);
    AddWindow(0x20, 40);
    AddWindow(0x30, 40);
    journal.onCall = [this](const std::string& call) {
        if (call == Owner("0x20"))
        {
            windows.Remove(0x20);
        }
    };

    EXPECT_TRUE(Stop());

    EXPECT_THAT(Asked(), ElementsAre(Class("0x10"), Post("0x10")));
    EXPECT_THAT(journal.CallsOf({"GetWindow"}), ElementsAre(Next("0x10"), Next("0x20")));
}

TEST_F(StopRunningClientTest, Asks_a_window_once_that_is_met_twice)
{
    AddClient(40);
    AddWindow(0x10, 40);
    AddWindow(0x20, 4, L"Other");
    journal.onCall = [this](const std::string& call) {
        if (call == Owner("0x20")) // as soon as it has been met, it goes behind the next one
        {
            windows.Remove(0x10);
            AddWindow(0x10, 40);
        }
    };
    windows.onPost = [this](std::uintptr_t) { processes.Remove(40); };

    EXPECT_TRUE(Stop());

    EXPECT_THAT(journal.CallsOf({"GetWindowThreadProcessId"}),
                ElementsAre(Owner("0x10"), Owner("0x20"), Owner("0x10")));
    EXPECT_THAT(Asked(), ElementsAre(Class("0x10"), Post("0x10")));
}

TEST_F(StopRunningClientTest, Looks_ten_times_a_second_apart_before_it_terminates)
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
    EXPECT_THAT(Terminations(), IsEmpty());
}

TEST_F(StopRunningClientTest, Terminates_those_that_the_last_look_found)
{
    AddClient(40);
    AddClient(44);
    clock.At(3000, [this] {
        processes.Remove(40);
        AddClient(36, L"Orvane.exe");
    });
    clock.At(9500, [this] { AddClient(48); }); // after the last look

    EXPECT_FALSE(Stop());

    EXPECT_EQ(log.Lines(), (Lines{Found(40), Found(44), StillRunning(36), c_terminated, StillRunning(44), c_terminated,
                                  c_stillRunning}));
    EXPECT_THAT(journal.CallsOf({"TerminateProcess"}),
                ElementsAre("TerminateProcess(36, 0)", "TerminateProcess(44, 0)"));
    EXPECT_EQ(clock.Sleeps(), Pauses(20, 1000));
}

TEST_F(StopRunningClientTest, Does_not_take_another_program_for_the_client_whose_id_it_was_given)
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

TEST_F(StopRunningClientTest, Goes_on_when_a_client_cannot_be_opened_or_terminated)
{
    for (const DWORD id : {40U, 44U, 48U, 52U, 56U})
    {
        AddClient(id);
    }
    journal.Fail("OpenProcess(0x1, 40)", ERROR_ACCESS_DENIED);
    journal.Fail("OpenProcess(0x1, 44)", ERROR_INVALID_PARAMETER);
    journal.Fail("OpenProcess(0x1, 48)", ERROR_GEN_FAILURE);
    journal.Fail("TerminateProcess(52, 0)", ERROR_ACCESS_DENIED);

    EXPECT_FALSE(Stop());

    EXPECT_EQ(
        log.Lines(),
        (Lines{Found(40), Found(44), Found(48), Found(52), Found(56), StillRunning(40), c_differentUser,
               StillRunning(44), c_alreadyClosed, StillRunning(48), c_openFailed + "-2147024865", StillRunning(52),
               "|ERROR|:   [ClientHelper] Failed to forcefully terminate Velmora process: -2147024891",
               StillRunning(56), c_terminated, c_stillRunning}));
}

TEST_F(StopRunningClientTest, Is_content_with_a_client_that_ends_by_the_last_look)
{
    AddStubbornClient(40);
    clock.At(18'999, [this] { processes.Remove(40); });

    EXPECT_TRUE(Stop());

    EXPECT_EQ(clock.Sleeps(), Pauses(19, 1000));
    EXPECT_EQ(log.Lines().back(), c_allTerminated);
}

TEST_F(StopRunningClientTest, Logs_that_the_processes_cannot_be_listed)
{
    AddClient(40);
    clock.At(2500, [this] { journal.Fail("CreateToolhelp32Snapshot", ERROR_BAD_LENGTH); });

    EXPECT_FALSE(Stop());

    ASSERT_EQ(log.Lines().size(), 2U);
    EXPECT_THAT(log.Lines().back(), StartsWith("|ERROR|:   [ClientHelper] Unable to stop running processes: "));
    EXPECT_THAT(log.Lines().back(), HasSubstr("80070018"));
    EXPECT_EQ(clock.Sleeps(), Pauses(3, 1000));
}

TEST_F(StopRunningClientTest, Logs_the_text_of_any_standard_exception)
{
    AddClient(40);
    const FakeCodePage western(1252);
    const Fake<&GetTopWindow> top = [](HWND) -> HWND { throw std::runtime_error("no luck \x80"); };

    EXPECT_FALSE(Stop());

    EXPECT_EQ(log.Lines(), (Lines{Found(40), "|ERROR|:   [ClientHelper] Unable to stop running processes: no luck ?"}));
}

TEST_F(StopRunningClientTest, Lets_other_exceptions_pass)
{
    AddClient(40);
    const Fake<&GetTopWindow> top = [](HWND) -> HWND { throw 1; };

    EXPECT_THROW(Stop(), int);

    EXPECT_EQ(log.Lines(), (Lines{Found(40)}));
}

TEST_F(StopRunningClientTest, Fails_when_memory_runs_out)
{
    const Fake<&CreateToolhelp32Snapshot> snapshot = Fails(ERROR_NOT_ENOUGH_MEMORY, INVALID_HANDLE_VALUE);
    bool stopped = true;
    {
        const OutOfMemory outOfMemory;
        stopped = Stop();
    }

    EXPECT_FALSE(stopped);
}

} // namespace
