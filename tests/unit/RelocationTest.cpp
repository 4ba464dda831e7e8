#include "Uninstaller/Relocation.h"

#include "Uninstaller/ExitCode.h"
#include "support/unit/FakeCodePage.h"
#include "support/unit/SimulatedMachine.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// Runs of a program that was started from the installation folder: it goes on as a copy.
namespace
{

using namespace Uninstaller;
using namespace Testing;
using Lines = std::vector<std::string>;

const std::string c_inside = "|INFO|:    Uninstaller is running inside installation directory. Copying to temporary "
                             "location so we can continue...";
const std::string c_copy = R"(CopyFileExW("\\?\C:\Program Files\Velmora\current\Velmora.Uninstaller.exe", )"
                           R"("C:\Windows\Temp\Velmora\Uninstaller\Velmora.Uninstaller.exe", 8))";
const Lines c_exits{"|INFO|:    This process will now exit (without waiting for user feedback)",
                    "|INFO|:    ----------"};

class RelocateTest : public testing::Test
{
protected:
    RelocateTest() { machine.RunFromInstallFolder(); }
    ~RelocateTest() override { EXPECT_EQ(machine.Leaks(), ""); }

    int Run(const std::wstring& arguments = L"-s")
    {
        before = machine.Everything();
        return machine.Run(arguments);
    }

    // From the first line after the checks on.
    Lines Log() const { return {machine.Log().begin() + 5, machine.Log().end()}; }
    static std::string Copy(const std::string& argument)
    {
        return '"' + Narrow(SimulatedMachine::c_copyPath) + "\" process (with args of \"" + argument + "\")";
    }
    static std::string Starting(const std::string& argument) { return "|INFO|:    Starting " + Copy(argument); }
    static std::string Failed(const std::string& reason)
    {
        std::string message = Narrow(copyToTempFailedMessage(L"<reason>"));
        return message.replace(message.find("<reason>"), 8, reason);
    }

    // The run ended with an error that was sent, the user told so, then the log shown and kept.
    void ExpectError(const std::string& message, const std::string& shown, const Lines& log) const
    {
        EXPECT_EQ(Log(), Lines{c_inside} + log + ("|ERROR|:   " + message) +
                             std::string("|INFO|:    Requested to open log..."));
        Calls end = machine.journal.CallsOf({"log", "SetForegroundWindow", "MessageBoxW"});
        end.erase(end.begin(), end.end() - 4);
        EXPECT_EQ(end, Calls{"log(|ERROR|:   " + message + ")"} +
                           ShownBox(MB_ICONERROR, "Velmora Uninstaller Failed", shown) +
                           std::string("log(|INFO|:    Requested to open log...)"));
        const auto sent = Sentry().events;
        ASSERT_EQ(sent.size(), 1U);
        EXPECT_EQ(sent[0].level, SENTRY_LEVEL_ERROR);
        EXPECT_EQ(sent[0].message, message);
        EXPECT_TRUE(machine.files.Has(SimulatedMachine::c_logPath));
        EXPECT_TRUE(machine.HasOpenedLog());
    }

    // What throws when the program is copied.
    void ThrowAtCopy(const std::function<void()>& thrower)
    {
        machine.journal.onCall = [=](const std::string& call) {
            if (call.starts_with("CopyFileExW"))
            {
                thrower();
            }
        };
    }

    SimulatedMachine machine;
    std::set<std::string> before;
};

TEST_F(RelocateTest, Copies_the_program_hands_the_mutex_over_and_starts_the_copy_with_the_same_argument)
{
    EXPECT_EQ(Run(L"--silent more"), EXIT_NO_ERROR);

    const Calls order = machine.journal.CallsOf({"log", "CopyFileExW", "CreateProcessW", "CloseHandle(mutex)",
                                                 "CloseHandle(started process)", "CloseHandle(its thread)", "Sleep"});
    EXPECT_EQ(Calls(order.begin() + 5, order.end()),
              (Calls{"log(" + c_inside + ")", c_copy, "CloseHandle(mutex)", "log(" + Starting("--silent") + ")",
                     R"(CreateProcessW("C:\Windows\Temp\Velmora\Uninstaller\Velmora.Uninstaller.exe", )"
                     R"(""C:\Windows\Temp\Velmora\Uninstaller\Velmora.Uninstaller.exe" --silent"))",
                     "CloseHandle(its thread)", "CloseHandle(started process)", "log(" + c_exits[0] + ")",
                     "log(" + c_exits[1] + ")"}));
}

TEST_F(RelocateTest, Leaves_the_log_and_the_crash_reports_to_the_copy_and_ends_crash_reporting_last_of_all)
{
    machine.files.AddFile(L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\Sentry\\report");

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    std::set<std::string> after = machine.Everything();
    EXPECT_EQ(after.erase("file " + Narrow(SimulatedMachine::c_logPath)), 1U);
    EXPECT_EQ(after, before);
    EXPECT_TRUE(machine.files.Scheduled().empty());
    const auto run = Sentry();
    EXPECT_EQ(run.closes, 1);
    EXPECT_TRUE(run.events.empty());
    EXPECT_EQ(run.breadcrumbs.back().message, "----------"); // none is kept after the end
}

TEST_F(RelocateTest, Without_an_argument_the_copy_gets_no_command_line)
{
    EXPECT_EQ(Run(L""), EXIT_NO_ERROR);

    EXPECT_EQ(Log(), (Lines{c_inside, Starting(""), c_exits[0], c_exits[1]}));
    EXPECT_TRUE(machine.journal.CallsOf({"CreateProcessW"}).front().ends_with(", null)"));
    EXPECT_EQ(machine.journal.CallsOf({"MessageBoxW"}), Calls{});
}

TEST_F(RelocateTest, A_copy_that_succeeds_at_a_later_attempt_is_no_failure)
{
    machine.journal.Fail("CopyFileExW", ERROR_SHARING_VIOLATION, 9);

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_EQ(machine.clock.Sleeps(), std::vector<DWORD>(9, 1000));
    EXPECT_EQ(machine.journal.CallsOf({"CreateProcessW"}).size(), 1U);
}

TEST_F(RelocateTest, Nobody_can_change_the_copy_from_its_comparison_on_until_it_is_started)
{
    int looks = 0;
    machine.journal.onCall = [&](const std::string& call) {
        if (call.starts_with("CloseHandle(mutex)") || call.starts_with("CreateProcessW"))
        {
            ++looks;
            EXPECT_FALSE(machine.files.Overwrite(SimulatedMachine::c_copyPath, "another program"));
            EXPECT_FALSE(machine.files.Delete(SimulatedMachine::c_copyPath));
            EXPECT_FALSE(machine.files.Rename(SimulatedMachine::c_copyPath, L"C:\\Windows\\Temp\\other.exe"));
        }
    };

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_EQ(looks, 2);
}

TEST_F(RelocateTest, What_is_compared_is_no_link_and_nobody_writes_to_it_meanwhile)
{
    std::vector<std::pair<DWORD, DWORD>> opened;
    Fake<&CreateFileW> createFile = [&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                        DWORD disposition, DWORD flags, HANDLE pattern) {
        if (access == GENERIC_READ)
        {
            opened.emplace_back(share, flags);
        }
        return createFile.Hidden(path, access, share, security, disposition, flags, pattern);
    };

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    constexpr DWORD c_flags = FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_SEQUENTIAL_SCAN;
    EXPECT_EQ(opened, (decltype(opened){{FILE_SHARE_READ, c_flags}, {FILE_SHARE_READ | FILE_SHARE_DELETE, c_flags}}));
}

TEST_F(RelocateTest, A_copy_that_differs_from_the_program_is_not_started)
{
    machine.files.AddFile(machine.ownPath, std::string(100'000, 'x'));
    for (const std::string& changed : {std::string(100'000, 'y'), std::string(99'999, 'x') + 'y',
                                       std::string(99'999, 'x'), std::string(100'001, 'x'), std::string()})
    {
        machine.journal.Take();
        machine.journal.onCall = [&](const std::string& call) {
            if (call == "CreateFileW(\"" + Narrow(SimulatedMachine::c_copyPath) + "\")")
            {
                machine.files.Overwrite(SimulatedMachine::c_copyPath, changed);
            }
        };

        EXPECT_EQ(Run(L"-s"), EXIT_ERROR_COPY_TO_TEMP);

        EXPECT_EQ(machine.journal.CallsOf({"CopyFileExW"}).size(), 10U);
        EXPECT_EQ(machine.journal.CallsOf({"CreateProcessW"}), Calls{});
        EXPECT_EQ(Sentry().events.back().message, Failed("-2147023890")); // ERROR_FILE_INVALID
    }
}

TEST_F(RelocateTest, What_has_the_copys_name_and_cannot_be_deleted_is_not_overwritten)
{
    machine.files.AddFile(SimulatedMachine::c_copyPath, "somebody else's", FILE_ATTRIBUTE_READONLY);

    EXPECT_EQ(Run(L"-s"), EXIT_ERROR_COPY_TO_TEMP);

    EXPECT_EQ(machine.journal.CallsOf({"CopyFileExW"}), Calls{});
    EXPECT_EQ(Sentry().events.back().message, Failed("-2147024891"));
}

TEST_F(RelocateTest, A_copy_that_fails_ten_times_ends_the_run)
{
    machine.journal.Fail("CopyFileExW", ERROR_ACCESS_DENIED);

    EXPECT_EQ(Run(L""), EXIT_ERROR_COPY_TO_TEMP);

    EXPECT_EQ(machine.journal.CallsOf({"CopyFileExW"}).size(), 10U);
    EXPECT_EQ(machine.journal.CallsOf({"Sleep"}).size(), 10U); // one is the window's
    ExpectError(Failed("-2147024891"), Failed("-2147024891"), {});
    EXPECT_EQ(machine.journal.CallsOf({"CreateProcessW", "MoveFileExW"}), Calls{});
    EXPECT_EQ(machine.journal.All().back(), c_sentClose) << "the mutex goes at the end alone";
}

TEST_F(RelocateTest, A_copy_that_fails_without_an_error_counts_as_made)
{
    Fake<&CopyFileExW> failing = [&](auto... arguments) -> BOOL {
        failing.Hidden(arguments...);
        SetLastError(ERROR_SUCCESS);
        return FALSE;
    };

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_EQ(machine.journal.CallsOf({"CreateProcessW"}).size(), 1U);
}

TEST_F(RelocateTest, A_copy_that_cannot_be_started_ends_the_run_and_schedules_the_program)
{
    machine.journal.Fail("CreateProcessW", ERROR_FILE_NOT_FOUND);

    EXPECT_EQ(Run(L"-g"), EXIT_ERROR_RUN_FROM_TEMP);

    ExpectError("Uninstaller was unable to start " + Copy("-g") + "! Reason: -2147024894",
                Narrow(exitCodeMessage(EXIT_ERROR_RUN_FROM_TEMP)), {Starting("-g")});
    EXPECT_EQ(machine.files.Scheduled(), std::vector{machine.ownPath});
}

TEST_F(RelocateTest, A_start_that_fails_without_an_error_is_a_failure_all_the_same)
{
    const Fake<&CreateProcessW> failing = Fails(ERROR_SUCCESS);

    EXPECT_EQ(Run(), EXIT_ERROR_RUN_FROM_TEMP);

    EXPECT_EQ(Log()[2], "|ERROR|:   Uninstaller was unable to start " + Copy("-s") + "! Reason: 0");
}

TEST_F(RelocateTest, A_mutex_that_cannot_be_handed_over_counts_as_a_failed_copy)
{
    machine.journal.Fail("CloseHandle(mutex)", ERROR_INVALID_HANDLE);

    EXPECT_EQ(Run(L"-g"), EXIT_ERROR_COPY_TO_TEMP);

    ASSERT_EQ(Sentry().events.size(), 1U);
    const std::string message = Sentry().events[0].message;
    EXPECT_NE(message.find("Reason: "), std::string::npos);
    EXPECT_NE(message.find("80070006"), std::string::npos) << message;
    ExpectError(message, message, {});
    EXPECT_EQ(machine.journal.CallsOf({"CreateProcessW", "MoveFileExW"}), Calls{});
}

TEST_F(RelocateTest, So_does_any_other_exception_on_the_way_with_text_in_the_code_page_of_the_system)
{
    const FakeCodePage western(1252);
    ThrowAtCopy([] { throw std::runtime_error("no luck \x80\r\n"); });

    EXPECT_EQ(Run(L"-g"), EXIT_ERROR_COPY_TO_TEMP);

    ASSERT_EQ(Sentry().events.size(), 1U);
    const std::string message = Sentry().events[0].message;
    EXPECT_EQ(message, Failed("no luck \xe2\x82\xac"));
}

TEST_F(RelocateTest, What_is_no_standard_exception_passes)
{
    ThrowAtCopy([] { throw 42; });

    EXPECT_THROW(Run(), int);
}

} // namespace
