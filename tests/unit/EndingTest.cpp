#include "Uninstaller/Ending.h"

#include "Uninstaller/CrashReporting.h"
#include "support/FakeFolders.h"
#include "support/FakePause.h"
#include "support/FakeStatusWindow.h"
#include "support/LoggedLines.h"
#include "support/OpenedFiles.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <sentry_testing.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using namespace Uninstaller;
using namespace Testing;
using Installer::RunType;
using Lines = std::vector<std::string>;

constexpr char c_opens[] = "|INFO|:    Requested to open log...";
constexpr char c_schedules[] = "schedule C:\\own.exe 4";
constexpr char c_closes[] = "close crash reporting";

std::string Message(ExitCode code)
{
    return Narrow(exitCodeMessage(code));
}

std::string ErrorBox(const std::string& caption, const std::string& text)
{
    return "box 16 \"" + caption + "\" \"" + text + '"';
}

// The end of a run that goes through everything, whatever is asked for.
class EndRunTest : public testing::Test
{
protected:
    EndRunTest()
    {
        StartCrashReporting();
        logger.Info(L"a run");
        root.AddFile(L"Temp\\Velmora\\Uninstaller\\Sentry\\report");
        log.onLine = [this](const std::string& line) { Note(line); };
        desktop.onCall = [this](const std::string& call) { Note(call); };
    }
    ~EndRunTest() override { SentryTesting::Forget(); }

    void Note(const std::string& what)
    {
        NoteClosing();
        order.push_back(what);
    }

    // The stand-in for crash reporting has nothing to tell when it is closed: it is seen at what comes next.
    void NoteClosing()
    {
        if (!SentryTesting::CurrentRun().isStarted && (order.empty() || order.back() != c_closes))
        {
            order.emplace_back(c_closes);
        }
    }

    ExitCode End(const Ending& ending)
    {
        const ExitCode code = EndRun({.logger = logger, .runType = RunType::Gui, .window = shown}, ending, ownPath);
        NoteClosing();
        return code;
    }

    std::vector<std::string> SentEvents() const
    {
        Lines sent;
        for (const auto& event : SentryTesting::CurrentRun().events)
        {
            EXPECT_EQ(event.level, SENTRY_LEVEL_ERROR);
            sent.push_back(event.message);
        }
        return sent;
    }
    bool AreReportsThere() const { return Exists(root / L"Temp\\Velmora\\Uninstaller\\Sentry"); }

    const std::wstring ownPath = L"C:\\own.exe";
    VirtualClock clock;
    TestFolder root;
    FakeFolders folders{root};
    LoggedLines log;
    OpenedFiles opened;
    FakeStatusWindow desktop;
    ShownStatusWindow window{desktop};
    Installer::StatusWindow* shown = window.Get();
    Lines order;
    Fake<&MoveFileExW> move = [this](LPCWSTR from, LPCWSTR to, DWORD flags) -> BOOL {
        EXPECT_EQ(to, nullptr);
        Note("schedule " + Narrow(from) + ' ' + std::to_string(flags));
        return TRUE;
    };
    Fake<&DeleteFileW> deleteFile = [this](LPCWSTR path) -> BOOL {
        if (path == logger.LogPath())
        {
            Note("delete the log");
        }
        return decltype(deleteFile)::Real(path);
    };
    Installer::Logger logger{RunType::Gui};
};

// A row of the table, and what is called for it in which order.
struct EndingCase
{
    const char* name;
    Ending ending;
    ExitCode code;
    Lines order;  // without the opened log's
    Lines events; // that are sent
    bool opensLog;
    bool keepsReports = false;
};

void PrintTo(const EndingCase& ending, std::ostream* stream)
{
    *stream << ending.name;
}

const std::string c_failed = "Velmora Uninstaller Failed";

const EndingCase c_endings[] = {
    {"help_shown", Ending(Outcome::HelpShown), EXIT_NO_ERROR, {"delete the log", c_closes}, {}, false},
    {"windows_too_old",
     Ending(Outcome::WindowsTooOld),
     EXIT_ERROR_WINDOWS_VERSION,
     {"|ERROR|:   " + Message(EXIT_ERROR_WINDOWS_VERSION), "foreground",
      ErrorBox("Version Not Supported", Message(EXIT_ERROR_WINDOWS_VERSION)), c_closes},
     {},
     false},
    {"not_elevated",
     Ending(Outcome::NotElevated),
     EXIT_ERROR_NOT_ELEVATED,
     {"|ERROR|:   " + Message(EXIT_ERROR_NOT_ELEVATED), "foreground",
      ErrorBox("Uninstaller Not Elevated", Message(EXIT_ERROR_NOT_ELEVATED)), c_closes},
     {},
     false},
    {"already_running",
     Ending(Outcome::AlreadyRunning),
     EXIT_ERROR_ALREADY_RUNNING,
     {"|ERROR|:   " + Message(EXIT_ERROR_ALREADY_RUNNING), "foreground",
      ErrorBox(c_failed, Message(EXIT_ERROR_ALREADY_RUNNING)), c_closes},
     {},
     false},
    {"copy_failed",
     Ending(Outcome::CopyFailed, L"no copy"),
     EXIT_ERROR_COPY_TO_TEMP,
     {"|ERROR|:   no copy", "foreground", ErrorBox(c_failed, "no copy"), c_opens, c_closes},
     {"no copy"},
     true},
    {"relocation_broke_off",
     RelocationBrokeOff(std::runtime_error("thrown")),
     EXIT_ERROR_COPY_TO_TEMP,
     {"|ERROR|:   " + Narrow(copyToTempFailedMessage(L"thrown")), "foreground",
      ErrorBox(c_failed, Narrow(copyToTempFailedMessage(L"thrown"))), c_opens, c_closes},
     {Narrow(copyToTempFailedMessage(L"thrown"))},
     true},
    {"copy_not_started",
     Ending(Outcome::CopyNotStarted, L"no start"),
     EXIT_ERROR_RUN_FROM_TEMP,
     {"|ERROR|:   no start", "foreground", ErrorBox(c_failed, Message(EXIT_ERROR_RUN_FROM_TEMP)), c_opens, c_schedules,
      c_closes},
     {"no start"},
     true},
    {"copy_started", Ending(Outcome::CopyStarted), EXIT_NO_ERROR, {c_closes}, {}, false, true},
    {"cancelled",
     Ending(Outcome::Cancelled),
     EXIT_NO_ERROR,
     {"|INFO|:    User canceled the uninstaller.", c_schedules, "delete the log", c_closes},
     {},
     false},
    {"unknown_answer",
     Ending(Outcome::UnknownAnswer, L"a button"),
     EXIT_ERROR_PERMISSION_DIALOG_FAIL,
     {"|ERROR|:   a button", c_schedules, c_closes},
     {},
     false},
    {"client_running",
     Ending(Outcome::ClientRunning, L"it runs"),
     EXIT_ERROR_CLIENT_RUNNING,
     {"|ERROR|:   it runs", "foreground", ErrorBox(c_failed, Message(EXIT_ERROR_CLIENT_RUNNING)), c_schedules,
      c_closes},
     {},
     false},
    {"folder_locked",
     Ending(Outcome::FolderLocked),
     EXIT_ERROR_DIRECTORY_LOCKED,
     {"foreground", ErrorBox(c_failed, Message(EXIT_ERROR_DIRECTORY_LOCKED)), c_opens, c_schedules, c_closes},
     {},
     true},
    {"removed",
     Ending(Outcome::Removed),
     EXIT_NO_ERROR,
     {"foreground", "box 64 \"Velmora Uninstalled\" \"Velmora has been successfully uninstalled.\"", c_schedules,
      "delete the log", c_closes},
     {},
     false},
    {"partly_removed",
     Ending(Outcome::PartlyRemoved),
     EXIT_ERROR_PARTIAL_UNINSTALL,
     {"|ERROR|:   Velmora did not fully uninstall. Please check the logs for more information.", "foreground",
      "box 48 \"Velmora Partially Uninstalled\" \"Velmora has been successfully uninstalled, but some files may "
      "remain. "
      "See the logs for more information.\"",
      c_opens, c_schedules, c_closes},
     {},
     true},
};

class EndingTest : public EndRunTest, public testing::WithParamInterface<EndingCase>
{
};

TEST_P(EndingTest, is_carried_out_in_its_order)
{
    const EndingCase& expected = GetParam();

    EXPECT_EQ(End(expected.ending), expected.code);

    EXPECT_EQ(order, expected.order);
    EXPECT_EQ(SentEvents(), expected.events);
    EXPECT_EQ(opened.All(), expected.opensLog ? std::vector{logger.LogPath()} : std::vector<std::wstring>{});
    EXPECT_EQ(Exists(logger.LogPath()), order.size() < 2 || order[order.size() - 2] != "delete the log");
    EXPECT_EQ(AreReportsThere(), expected.keepsReports);
    EXPECT_EQ(SentryTesting::CurrentRun().closes, 1);
}

TEST_P(EndingTest, is_the_same_without_a_window_but_for_the_message_box)
{
    const EndingCase& expected = GetParam();
    shown = nullptr;

    EXPECT_EQ(End(expected.ending), expected.code);

    Lines withoutBox = expected.order;
    std::erase_if(withoutBox, [](const std::string& call) { return call == "foreground" || call.starts_with("box "); });
    EXPECT_EQ(order, withoutBox);
    EXPECT_EQ(SentEvents(), expected.events);
}

// Only the copy goes on with the console.
TEST_P(EndingTest, lets_the_console_go_without_a_key_for_the_copy_alone)
{
    unsigned pauses = 0;
    Fake<&AllocConsole> allocate = []() -> BOOL { return TRUE; };
    Fake<&FreeConsole> release = []() -> BOOL { return TRUE; };
    const FakePause pause([] { return CreateEventW(nullptr, FALSE, FALSE, nullptr); }, [&] { ++pauses; });
    {
        Installer::Logger verbose(RunType::Verbose);
        EndRun({.logger = verbose, .runType = RunType::Verbose}, GetParam().ending, ownPath);
    }
    EXPECT_EQ(pauses, GetParam().ending.outcome == Outcome::CopyStarted ? 0U : 1U);
}

INSTANTIATE_TEST_SUITE_P(EndRunTest, EndingTest, testing::ValuesIn(c_endings),
                         [](const auto& ending) { return std::string(ending.param.name); });

// The table above has one case for each ending.
TEST_F(EndRunTest, every_ending_has_its_case)
{
    ASSERT_EQ(std::size(c_endings), static_cast<std::size_t>(Outcome::PartlyRemoved) + 1);
    for (std::size_t index = 0; index < std::size(c_endings); ++index)
    {
        EXPECT_EQ(c_endings[index].ending.outcome, static_cast<Outcome>(index));
    }
}

// A disk on which it cannot be told, for a time, whether there is a log.
class UnreadableLogTest : public EndRunTest
{
protected:
    int failures = 1;
    Fake<&GetFileAttributesW> attributes = [this](LPCWSTR path) -> DWORD {
        if (path == logger.LogPath() && failures > 0)
        {
            --failures;
            SetLastError(ERROR_CRC);
            return INVALID_FILE_ATTRIBUTES;
        }
        return decltype(attributes)::Real(path);
    };
};

TEST_F(UnreadableLogTest, breaks_off_the_end_of_a_failed_copy_which_then_has_that_as_its_reason)
{
    EXPECT_EQ(End(Ending(Outcome::CopyFailed, L"no copy")), EXIT_ERROR_COPY_TO_TEMP);

    ASSERT_EQ(SentEvents().size(), 2U);
    EXPECT_EQ(SentEvents()[0], "no copy");
    const std::string second = SentEvents()[1];
    EXPECT_TRUE(second.starts_with("Unable to copy the Velmora Uninstaller to temporary directory.")) << second;
    EXPECT_EQ(order, (Lines{"|ERROR|:   no copy", "foreground", ErrorBox(c_failed, "no copy"), c_opens,
                            "|ERROR|:   " + second, "foreground", ErrorBox(c_failed, second), c_opens, c_closes}));
    EXPECT_EQ(opened.All(), std::vector{logger.LogPath()});
}

TEST_F(UnreadableLogTest, does_so_once)
{
    failures = 2;

    EXPECT_THROW(End(Ending(Outcome::CopyFailed, L"no copy")), std::filesystem::filesystem_error);

    EXPECT_EQ(SentEvents().size(), 2U);
    EXPECT_TRUE(SentryTesting::CurrentRun().isStarted);
}

TEST_F(UnreadableLogTest, is_an_exception_at_every_other_end_that_opens_the_log)
{
    for (const EndingCase& ending : c_endings)
    {
        if (ending.opensLog && ending.ending.outcome != Outcome::CopyFailed)
        {
            failures = 1;
            EXPECT_THROW(End(ending.ending), std::filesystem::filesystem_error) << ending.name;
            EXPECT_EQ(failures, 0);
            EXPECT_EQ(order.back(), c_opens) << ending.name;
        }
    }
    EXPECT_TRUE(SentryTesting::CurrentRun().isStarted);
}

} // namespace
