#include "Uninstaller/Ending.h"

#include "Uninstaller/CrashReporting.h"
#include "support/unit/SimulatedMachine.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <iterator>
#include <ostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace
{

using namespace Uninstaller;
using namespace Testing;
using Installer::RunType;
using Lines = std::vector<std::string>;

const std::string c_opens = "log(|INFO|:    Requested to open log...)";
const std::string c_deletes = "DeleteFileW(\"" + Narrow(SimulatedMachine::c_logPath) + "\")";
const std::string c_schedules = "MoveFileExW(\"" + Narrow(SimulatedMachine::c_copyPath) + "\", null, 4)";
const std::string c_closes = "sentry_close()";
constexpr wchar_t c_report[] = L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\Sentry\\report";

std::string Message(ExitCode code)
{
    return Narrow(exitCodeMessage(code));
}

std::string Error(const std::string& text)
{
    return "log(|ERROR|:   " + text + ')';
}

Calls Failed(const std::string& text)
{
    return ShownBox(MB_ICONERROR, "Velmora Uninstaller Failed", text);
}

class EndRunTest : public testing::Test
{
protected:
    EndRunTest()
    {
        StartCrashReporting();
        machine.files.AddFile(c_report);
        logger.Info(L"a run");
        machine.journal.Take();
    }

    ExitCode End(const Ending& ending, Installer::StatusWindow* owner)
    {
        return EndRun({.logger = logger, .runType = RunType::Gui, .window = owner}, ending, machine.ownPath);
    }
    ExitCode End(const Ending& ending) { return End(ending, window.Get()); }

    // What is done, in its order.
    Calls Order() const
    {
        return machine.journal.CallsOf(
            {"log", "SetForegroundWindow", "MessageBoxW", c_deletes, "MoveFileExW", "sentry_close"});
    }
    static Lines SentEvents()
    {
        Lines sent;
        for (const auto& event : Sentry().events)
        {
            EXPECT_EQ(event.level, SENTRY_LEVEL_ERROR);
            sent.push_back(event.message);
        }
        return sent;
    }

    SimulatedMachine machine;
    ShownStatusWindow window{machine.desktop};
    Installer::Logger logger{RunType::Gui};
};

enum class Log
{
    Stays,
    IsOpened,
    Goes,
};

// A row of the table, and what is done for it: in this order, and then crash reporting is closed.
struct EndingCase
{
    const char* name;
    Ending ending;
    ExitCode code;
    Calls line{};
    Calls box{};
    Log log = Log::Stays;
    bool schedulesProgram = false;
    Lines events{}; // that are sent
    bool hasCopy = false;

    Calls Order(const Calls& shown) const
    {
        return line + shown + (log == Log::IsOpened ? Calls{c_opens} : Calls{}) +
               (schedulesProgram ? Calls{c_schedules} : Calls{}) + (log == Log::Goes ? Calls{c_deletes} : Calls{}) +
               c_closes;
    }
};

void PrintTo(const EndingCase& ending, std::ostream* stream)
{
    *stream << ending.name;
}

const std::string c_brokenOff = Narrow(copyToTempFailedMessage(L"thrown"));

const EndingCase c_endings[] = {
    {.name = "help_shown", .ending = Ending(Outcome::HelpShown), .code = EXIT_NO_ERROR, .log = Log::Goes},
    {.name = "windows_too_old",
     .ending = Ending(Outcome::WindowsTooOld),
     .code = EXIT_ERROR_WINDOWS_VERSION,
     .line = {Error(Message(EXIT_ERROR_WINDOWS_VERSION))},
     .box = ShownBox(MB_ICONERROR, "Version Not Supported", Message(EXIT_ERROR_WINDOWS_VERSION))},
    {.name = "not_elevated",
     .ending = Ending(Outcome::NotElevated),
     .code = EXIT_ERROR_NOT_ELEVATED,
     .line = {Error(Message(EXIT_ERROR_NOT_ELEVATED))},
     .box = ShownBox(MB_ICONERROR, "Uninstaller Not Elevated", Message(EXIT_ERROR_NOT_ELEVATED))},
    {.name = "already_running",
     .ending = Ending(Outcome::AlreadyRunning),
     .code = EXIT_ERROR_ALREADY_RUNNING,
     .line = {Error(Message(EXIT_ERROR_ALREADY_RUNNING))},
     .box = Failed(Message(EXIT_ERROR_ALREADY_RUNNING))},
    {.name = "copy_failed",
     .ending = Ending(Outcome::CopyFailed, L"no copy"),
     .code = EXIT_ERROR_COPY_TO_TEMP,
     .line = {Error("no copy")},
     .box = Failed("no copy"),
     .log = Log::IsOpened,
     .events = {"no copy"}},
    {.name = "relocation_aborted",
     .ending = RelocationAborted(std::runtime_error("thrown")),
     .code = EXIT_ERROR_COPY_TO_TEMP,
     .line = {Error(c_brokenOff)},
     .box = Failed(c_brokenOff),
     .log = Log::IsOpened,
     .events = {c_brokenOff}},
    {.name = "copy_not_started",
     .ending = Ending(Outcome::CopyNotStarted, L"no start"),
     .code = EXIT_ERROR_RUN_FROM_TEMP,
     .line = {Error("no start")},
     .box = Failed(Message(EXIT_ERROR_RUN_FROM_TEMP)),
     .log = Log::IsOpened,
     .schedulesProgram = true,
     .events = {"no start"}},
    {.name = "copy_started", .ending = Ending(Outcome::CopyStarted), .code = EXIT_NO_ERROR, .hasCopy = true},
    {.name = "cancelled",
     .ending = Ending(Outcome::Cancelled),
     .code = EXIT_NO_ERROR,
     .line = {"log(|INFO|:    User canceled the uninstaller.)"},
     .log = Log::Goes,
     .schedulesProgram = true},
    {.name = "unexpected_button",
     .ending = Ending(Outcome::UnexpectedButton, L"a button"),
     .code = EXIT_ERROR_PERMISSION_DIALOG_FAIL,
     .line = {Error("a button")},
     .schedulesProgram = true},
    {.name = "client_running",
     .ending = Ending(Outcome::ClientRunning, L"it runs"),
     .code = EXIT_ERROR_CLIENT_RUNNING,
     .line = {Error("it runs")},
     .box = Failed(Message(EXIT_ERROR_CLIENT_RUNNING)),
     .schedulesProgram = true},
    {.name = "folder_locked",
     .ending = Ending(Outcome::FolderLocked),
     .code = EXIT_ERROR_DIRECTORY_LOCKED,
     .box = Failed(Message(EXIT_ERROR_DIRECTORY_LOCKED)),
     .log = Log::IsOpened,
     .schedulesProgram = true},
    {.name = "removed",
     .ending = Ending(Outcome::Removed),
     .code = EXIT_NO_ERROR,
     .box = ShownBox(MB_ICONINFORMATION, "Velmora Uninstalled", "Velmora has been successfully uninstalled."),
     .log = Log::Goes,
     .schedulesProgram = true},
    {.name = "partially_removed",
     .ending = Ending(Outcome::PartiallyRemoved),
     .code = EXIT_ERROR_PARTIAL_UNINSTALL,
     .line = {Error(std::string(c_notComplete))},
     .box = ShownBox(MB_ICONWARNING, "Velmora Partially Uninstalled",
                     "Velmora has been successfully uninstalled, but some files may remain. See the logs for more "
                     "information."),
     .log = Log::IsOpened,
     .schedulesProgram = true},
};

class EndingTest : public EndRunTest, public testing::WithParamInterface<EndingCase>
{
};

TEST_P(EndingTest, Is_carried_out_in_its_order)
{
    const EndingCase& expected = GetParam();

    EXPECT_EQ(End(expected.ending), expected.code);

    EXPECT_EQ(Order(), expected.Order(expected.box));
    EXPECT_EQ(SentEvents(), expected.events);
    EXPECT_EQ(machine.HasOpenedLog(), expected.log == Log::IsOpened);
    EXPECT_EQ(machine.files.Has(SimulatedMachine::c_logPath), expected.log != Log::Goes);
    EXPECT_EQ(machine.files.Has(c_report), expected.hasCopy);
    EXPECT_EQ(Sentry().closes, 1);
}

TEST_P(EndingTest, Is_the_same_without_a_window_but_for_the_message_box)
{
    EXPECT_EQ(End(GetParam().ending, nullptr), GetParam().code);

    EXPECT_EQ(Order(), GetParam().Order({}));
    EXPECT_EQ(SentEvents(), GetParam().events);
}

// Only the copy goes on with the console.
TEST_P(EndingTest, Lets_the_console_go_without_a_key_for_the_copy_alone)
{
    {
        Installer::Logger verbose(RunType::Verbose);
        EndRun({.logger = verbose, .runType = RunType::Verbose}, GetParam().ending, machine.ownPath);
    }
    EXPECT_EQ(machine.journal.CallsOf({"WaitForSingleObject(command processor, 4294967295)"}).size(),
              GetParam().hasCopy ? 0U : 1U);
}

INSTANTIATE_TEST_SUITE_P(EndRunTest, EndingTest, testing::ValuesIn(c_endings),
                         [](const auto& ending) { return std::string(ending.param.name); });

TEST_F(EndRunTest, Every_ending_has_its_case)
{
    ASSERT_EQ(std::size(c_endings), static_cast<std::size_t>(Outcome::PartiallyRemoved) + 1);
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
        return attributes.Hidden(path);
    };
};

TEST_F(UnreadableLogTest, Aborts_the_end_of_a_failed_copy_which_then_has_that_as_its_reason)
{
    EXPECT_EQ(End(Ending(Outcome::CopyFailed, L"no copy")), EXIT_ERROR_COPY_TO_TEMP);

    ASSERT_EQ(SentEvents().size(), 2U);
    EXPECT_EQ(SentEvents()[0], "no copy");
    const std::string second = SentEvents()[1];
    EXPECT_TRUE(second.starts_with("Unable to copy the Velmora Uninstaller to temporary directory.")) << second;
    EXPECT_EQ(Order(), Calls{Error("no copy")} + Failed("no copy") + c_opens + Error(second) + Failed(second) +
                           c_opens + c_closes);
    EXPECT_TRUE(machine.HasOpenedLog());
}

TEST_F(UnreadableLogTest, Does_so_once)
{
    failures = 2;

    EXPECT_THROW(End(Ending(Outcome::CopyFailed, L"no copy")), std::system_error);

    EXPECT_EQ(SentEvents().size(), 2U);
    EXPECT_TRUE(Sentry().isStarted);
}

TEST_F(UnreadableLogTest, Is_an_exception_at_every_other_end_that_opens_the_log)
{
    for (const EndingCase& ending : c_endings)
    {
        if (ending.log == Log::IsOpened && ending.ending.outcome != Outcome::CopyFailed)
        {
            failures = 1;
            EXPECT_THROW(End(ending.ending), std::system_error) << ending.name;
            EXPECT_EQ(failures, 0);
            EXPECT_EQ(Order().back(), c_opens) << ending.name;
        }
    }
    EXPECT_TRUE(Sentry().isStarted);
}

} // namespace
