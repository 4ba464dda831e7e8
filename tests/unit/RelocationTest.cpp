#include "Uninstaller/Relocation.h"

#include "Uninstaller/CrashReporting.h"
#include "support/FakeCodePage.h"
#include "support/FakeFolders.h"
#include "support/FakeStatusWindow.h"
#include "support/LoggedLines.h"
#include "support/OpenHandles.h"
#include "support/OpenedFiles.h"
#include "support/PathLimits.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <sentry_testing.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using namespace Uninstaller;
using namespace Testing;
using Installer::RunType;
using Lines = std::vector<std::string>;

// A copy and a start that Windows carries out as the test says.
class RelocateTest : public testing::Test
{
protected:
    RelocateTest()
    {
        StartCrashReporting();
        desktop.onCall = [this](const std::string&) {
            linesWhenTold = log.All();
            EXPECT_TRUE(opened.All().empty());
            EXPECT_TRUE(SentryTesting::CurrentRun().isStarted);
        };
    }
    ~RelocateTest() override { SentryTesting::Forget(); }

    // Relocates, and ends the run as that says.
    ExitCode Relocate(const std::wstring& argument = L"-s")
    {
        const Ending ending = Uninstaller::Relocate(logger, ownPath, argument, mutex);
        return EndRun({.logger = logger, .runType = RunType::Gui, .window = window.Get()}, ending, ownPath);
    }

    static std::string Narrow(const std::wstring& text) { return {text.begin(), text.end()}; }
    std::wstring Target() const { return folders.Temp() + L"Velmora\\Uninstaller\\Velmora.Uninstaller.exe"; }
    std::string StartLine(const std::string& argument = "-s") const
    {
        return "\"" + Narrow(Target()) + "\" process (with args of \"" + argument + "\")";
    }

    // The run ended with an error that was sent, the user told so after that and before anything else, the log shown
    // and kept.
    void ExpectError(const std::string& message, const std::string& shown) const
    {
        EXPECT_EQ(desktop.Calls(), (Lines{"foreground", "box 16 \"Velmora Uninstaller Failed\" \"" + shown + '"'}));
        ASSERT_FALSE(linesWhenTold.empty());
        EXPECT_EQ(linesWhenTold.back(), "|ERROR|:   " + message);
        const auto sent = SentryTesting::CurrentRun();
        EXPECT_FALSE(sent.isStarted);
        ASSERT_EQ(sent.events.size(), 1U);
        EXPECT_EQ(sent.events[0].level, SENTRY_LEVEL_ERROR);
        EXPECT_EQ(sent.events[0].message, message);
        ASSERT_GE(log.All().size(), 2U);
        EXPECT_EQ(log.All()[log.All().size() - 2], "|ERROR|:   " + message);
        EXPECT_EQ(log.All().back(), "|INFO|:    Requested to open log...");
        EXPECT_EQ(opened.All(), std::vector<std::wstring>{logger.LogPath()});
        EXPECT_TRUE(Exists(logger.LogPath()));
    }
    void ExpectError(const std::string& message) const { ExpectError(message, message); }
    static std::string StartFailed() { return Narrow(exitCodeMessage(EXIT_ERROR_RUN_FROM_TEMP)); }
    static std::string CopyFailed(const std::string& reason)
    {
        return Narrow(copyToTempFailedMessage(std::wstring(reason.begin(), reason.end())));
    }

    static constexpr wchar_t c_ownPath[] = L"C:\\Program Files\\Velmora\\Velmora.Uninstaller.exe";
    std::wstring ownPath = c_ownPath;
    const std::string inside = "|INFO|:    Uninstaller is running inside installation directory. Copying to temporary "
                               "location so we can continue...";

    VirtualClock clock;
    TestFolder root;
    FakeFolders folders{root};
    LoggedLines log;
    OpenedFiles opened;
    OpenHandles handles;
    FakeStatusWindow desktop;
    ShownStatusWindow window{desktop};
    Lines linesWhenTold;
    HANDLE heldMutex = handles.Make();
    wil::unique_handle mutex{heldMutex};
    std::vector<std::wstring> scheduled;
    Fake<&MoveFileExW> move = [this](LPCWSTR from, LPCWSTR, DWORD) -> BOOL {
        scheduled.emplace_back(from);
        return TRUE;
    };

    unsigned copies = 0;
    std::function<DWORD(unsigned copy)> copyResult = [](unsigned) { return ERROR_SUCCESS; };
    Fake<&CopyFileExW> copyFile = [this](LPCWSTR from, LPCWSTR to, LPPROGRESS_ROUTINE routine, LPVOID data,
                                         LPBOOL cancel, DWORD flags) -> BOOL {
        EXPECT_EQ(from, L"\\\\?\\" + ownPath);
        EXPECT_EQ(to, Target());
        EXPECT_EQ(routine, nullptr);
        EXPECT_EQ(data, nullptr);
        EXPECT_EQ(cancel, nullptr);
        EXPECT_EQ(flags, 8U);
        EXPECT_TRUE(Exists(folders.Temp() + L"Velmora\\Uninstaller"));
        EXPECT_TRUE(handles.IsOpen(heldMutex));
        const DWORD result = copyResult(++copies);
        SetLastError(result);
        return copyFails || result != ERROR_SUCCESS ? FALSE : TRUE;
    };
    bool copyFails = false; // without an error, if there is none

    unsigned starts = 0;
    DWORD startResult = ERROR_SUCCESS;
    std::optional<std::wstring> commandLine;
    Fake<&CreateProcessW> createProcess = [this](LPCWSTR program, LPWSTR line, LPSECURITY_ATTRIBUTES processSecurity,
                                                 LPSECURITY_ATTRIBUTES threadSecurity, BOOL inherits, DWORD flags,
                                                 LPVOID environment, LPCWSTR folder, LPSTARTUPINFOW startup,
                                                 LPPROCESS_INFORMATION information) -> BOOL {
        ++starts;
        EXPECT_EQ(program, Target());
        commandLine = line == nullptr ? std::nullopt : std::optional<std::wstring>(line);
        EXPECT_EQ(processSecurity, nullptr);
        EXPECT_EQ(threadSecurity, nullptr);
        EXPECT_FALSE(inherits);
        EXPECT_EQ(flags, 0U);
        EXPECT_EQ(environment, nullptr);
        EXPECT_EQ(folder, nullptr);
        STARTUPINFOW expected{};
        expected.cb = 104;
        EXPECT_EQ(std::memcmp(startup, &expected, sizeof(expected)), 0);
        EXPECT_FALSE(handles.IsOpen(heldMutex)) << "the copy could not take the mutex";
        EXPECT_EQ(log.All().back(), "|INFO|:    Starting " + StartLine(argumentInLog));
        if (startResult != ERROR_SUCCESS)
        {
            SetLastError(startResult);
            return FALSE;
        }
        *information = {handles.Make(), handles.Make(), 1, 2};
        started = *information;
        return TRUE;
    };
    PROCESS_INFORMATION started{}; // the copy, when it was
    std::string argumentInLog = "-s";
    Installer::Logger logger{RunType::Gui};
};

TEST_F(RelocateTest, copies_the_program_and_starts_the_copy_with_the_same_argument)
{
    EXPECT_EQ(Relocate(), EXIT_NO_ERROR);

    EXPECT_EQ(copies, 1U);
    EXPECT_EQ(starts, 1U);
    EXPECT_EQ(commandLine, L"\"" + Target() + L"\" -s");
    EXPECT_EQ(log.All(), (Lines{inside, "|INFO|:    Starting " + StartLine(),
                                "|INFO|:    This process will now exit (without waiting for user feedback)",
                                "|INFO|:    ----------"}));
    EXPECT_TRUE(desktop.Calls().empty());
    EXPECT_TRUE(clock.Sleeps().empty());
    EXPECT_FALSE(mutex);
}

TEST_F(RelocateTest, lets_go_of_the_copy_before_it_says_that_it_ends)
{
    std::vector<std::string> afterwards;
    log.onLine = [&](const std::string& line) {
        if (started.hProcess != nullptr)
        {
            EXPECT_FALSE(handles.IsOpen(started.hProcess)) << line;
            EXPECT_FALSE(handles.IsOpen(started.hThread)) << line;
            afterwards.push_back(line);
        }
    };

    EXPECT_EQ(Relocate(), EXIT_NO_ERROR);

    EXPECT_EQ(afterwards, (Lines{"|INFO|:    This process will now exit (without waiting for user feedback)",
                                 "|INFO|:    ----------"}));
}

TEST_F(RelocateTest, ends_crash_reporting_once_and_last_of_all)
{
    EXPECT_EQ(Relocate(), EXIT_NO_ERROR);

    const auto run = SentryTesting::CurrentRun();
    EXPECT_EQ(run.closes, 1);
    ASSERT_FALSE(run.breadcrumbs.empty());
    EXPECT_EQ(run.breadcrumbs.back().message, "----------"); // none is kept after the end
}

TEST_F(RelocateTest, a_program_with_a_long_path_is_copied_like_any_other)
{
    ownPath = L"C:\\" + std::wstring(200, L'a') + L"\\" + std::wstring(200, L'b') + L"\\u.exe";
    const PathLimits limits;

    EXPECT_EQ(Relocate(), EXIT_NO_ERROR);

    EXPECT_EQ(copies, 1U);
    EXPECT_EQ(starts, 1U);
}

TEST_F(RelocateTest, without_an_argument_the_copy_gets_no_command_line)
{
    argumentInLog = "";

    EXPECT_EQ(Relocate(L""), EXIT_NO_ERROR);

    EXPECT_EQ(starts, 1U);
    EXPECT_EQ(commandLine, std::nullopt);
}

TEST_F(RelocateTest, ends_crash_reporting_but_leaves_its_folder_and_the_log)
{
    root.AddFile(L"Temp\\Velmora\\Uninstaller\\Sentry\\report");

    EXPECT_EQ(Relocate(), EXIT_NO_ERROR);

    EXPECT_FALSE(SentryTesting::CurrentRun().isStarted);
    EXPECT_TRUE(SentryTesting::CurrentRun().events.empty());
    EXPECT_TRUE(Exists(root / L"Temp\\Velmora\\Uninstaller\\Sentry\\report")); // the copy may be using it by now
    EXPECT_TRUE(Exists(logger.LogPath()));
    EXPECT_TRUE(scheduled.empty());
    EXPECT_TRUE(opened.All().empty());
}

TEST_F(RelocateTest, a_copy_that_succeeds_at_a_later_attempt_is_no_failure)
{
    copyResult = [](unsigned copy) { return copy < 10 ? ERROR_SHARING_VIOLATION : ERROR_SUCCESS; };

    EXPECT_EQ(Relocate(), EXIT_NO_ERROR);

    EXPECT_EQ(copies, 10U);
    EXPECT_EQ(clock.Sleeps(), std::vector<DWORD>(9, 1000));
    EXPECT_EQ(starts, 1U);
}

TEST_F(RelocateTest, a_copy_that_fails_ten_times_ends_the_run)
{
    copyResult = [](unsigned copy) { return copy < 10 ? ERROR_SHARING_VIOLATION : ERROR_ACCESS_DENIED; };

    EXPECT_EQ(Relocate(), EXIT_ERROR_COPY_TO_TEMP);

    EXPECT_EQ(copies, 10U);
    EXPECT_EQ(clock.Sleeps(), std::vector<DWORD>(9, 1000));
    EXPECT_EQ(starts, 0U);
    ExpectError(CopyFailed("-2147024891"));
    EXPECT_EQ(log.All().size(), 3U);
    EXPECT_TRUE(scheduled.empty());
    EXPECT_EQ(mutex.get(), heldMutex); // nobody takes over
}

TEST_F(RelocateTest, a_copy_that_fails_without_an_error_counts_as_made)
{
    copyFails = true;

    EXPECT_EQ(Relocate(), EXIT_NO_ERROR);

    EXPECT_EQ(copies, 1U);
    EXPECT_EQ(starts, 1U);
}

TEST_F(RelocateTest, a_copy_that_cannot_be_started_ends_the_run_and_schedules_the_program)
{
    startResult = ERROR_FILE_NOT_FOUND;

    EXPECT_EQ(Relocate(), EXIT_ERROR_RUN_FROM_TEMP);

    ExpectError("Uninstaller was unable to start " + StartLine() + "! Reason: -2147024894", StartFailed());
    EXPECT_EQ(log.All().size(), 4U);
    EXPECT_EQ(scheduled, std::vector<std::wstring>{c_ownPath});
    EXPECT_FALSE(mutex);
}

TEST_F(RelocateTest, a_start_that_fails_without_an_error_is_a_failure_all_the_same)
{
    Fake<&CreateProcessW> failing = [](LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD,
                                       LPVOID, LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION) -> BOOL {
        SetLastError(ERROR_SUCCESS);
        return FALSE;
    };

    EXPECT_EQ(Relocate(), EXIT_ERROR_RUN_FROM_TEMP);

    ExpectError("Uninstaller was unable to start " + StartLine() + "! Reason: 0", StartFailed());
}

TEST_F(RelocateTest, a_mutex_that_cannot_be_handed_over_counts_as_a_failed_copy)
{
    handles.closeError = ERROR_INVALID_HANDLE;

    EXPECT_EQ(Relocate(), EXIT_ERROR_COPY_TO_TEMP);

    EXPECT_EQ(starts, 0U);
    ASSERT_EQ(SentryTesting::CurrentRun().events.size(), 1U);
    const std::string message = SentryTesting::CurrentRun().events[0].message;
    EXPECT_NE(message.find("Reason: "), std::string::npos);
    EXPECT_NE(message.find("80070006"), std::string::npos) << message;
    ExpectError(message);
    EXPECT_TRUE(scheduled.empty());
}

TEST_F(RelocateTest, so_does_any_other_exception_on_the_way)
{
    copyResult = [](unsigned) -> DWORD { throw std::bad_alloc(); };

    EXPECT_EQ(Relocate(), EXIT_ERROR_COPY_TO_TEMP);

    ExpectError(CopyFailed(std::bad_alloc().what()));
}

TEST_F(RelocateTest, an_exception_with_text_in_the_code_page_of_the_system_is_told_in_full)
{
    const FakeCodePage western(1252);
    copyResult = [](unsigned) -> DWORD { throw std::runtime_error("no luck \x80\r\n"); };

    EXPECT_EQ(Relocate(), EXIT_ERROR_COPY_TO_TEMP);

    ASSERT_EQ(SentryTesting::CurrentRun().events.size(), 1U);
    EXPECT_EQ(SentryTesting::CurrentRun().events[0].message, CopyFailed("no luck \xe2\x82\xac"));
}

TEST_F(RelocateTest, what_is_no_standard_exception_passes)
{
    copyResult = [](unsigned) -> DWORD { throw 42; };

    EXPECT_THROW(Relocate(), int);
}

} // namespace
