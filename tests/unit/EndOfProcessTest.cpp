#include "Uninstaller/EndOfProcess.h"

#include "Uninstaller/CrashReporting.h"
#include "support/unit/SimulatedMachine.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using namespace Uninstaller;
using namespace Testing;

constexpr wchar_t c_log[] = L"C:\\run.log";
constexpr wchar_t c_program[] = L"C:\\some\\program.exe";
constexpr wchar_t c_reports[] = L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\Sentry";
constexpr wchar_t c_report[] = L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\Sentry\\pending\\report.envelope";

class FinishProcessTest : public testing::Test
{
protected:
    FinishProcessTest()
    {
        StartCrashReporting();
        machine.files.AddFile(c_log);
        machine.files.AddFile(c_report);
        Sentry().onClose = [this] { EXPECT_TRUE(machine.files.Has(c_reports)) << "the reports went too early"; };
    }

    SimulatedMachine machine;
};

TEST_F(FinishProcessTest, Schedules_the_file_then_deletes_the_log_then_ends_crash_reporting)
{
    Sentry().onClose = [this] {
        EXPECT_EQ(machine.journal.CallsOf({"MoveFileExW", "DeleteFileW"}),
                  (Calls{R"(MoveFileExW("C:\some\program.exe", null, 4))", R"(DeleteFileW("C:\run.log"))"}));
        EXPECT_TRUE(machine.files.Has(c_report)) << "the reports went too early";
    };

    finishProcess(c_log, c_program, true);

    EXPECT_EQ(machine.files.Scheduled(), std::vector<std::wstring>{c_program});
    EXPECT_FALSE(machine.files.Has(c_log));
    EXPECT_EQ(Sentry().closes, 1);
    EXPECT_FALSE(machine.files.Has(c_reports));
    EXPECT_TRUE(machine.files.Has(L"C:\\Windows\\Temp\\Velmora\\Uninstaller"));
}

TEST_F(FinishProcessTest, Keeps_the_log_unless_told_otherwise_whether_or_not_the_file_can_be_scheduled)
{
    machine.journal.Fail("MoveFileExW");

    finishProcess(c_log, c_program, false);

    EXPECT_TRUE(machine.files.Has(c_log));
    EXPECT_FALSE(machine.files.Has(c_report));
}

TEST_F(FinishProcessTest, Schedules_nothing_where_there_is_nothing_to_schedule_and_does_not_mind_what_is_not_there)
{
    finishProcess(c_log, L"", true);
    EXPECT_FALSE(machine.files.Has(c_log));
    Sentry().onClose = [] {};

    finishProcess(c_log, L"", true);

    EXPECT_EQ(machine.journal.CallsOf({"MoveFileExW"}), Calls{});
    EXPECT_TRUE(machine.clock.Sleeps().empty());
}

TEST_F(FinishProcessTest, Does_not_mind_what_it_cannot_delete)
{
    machine.files.AddFile(c_log, "x", FILE_ATTRIBUTE_READONLY);
    machine.files.AddFile(c_report, "x", FILE_ATTRIBUTE_READONLY);

    finishProcess(c_log, L"", true);

    EXPECT_TRUE(machine.files.Has(c_log));
    EXPECT_TRUE(machine.files.Has(c_report));
    EXPECT_FALSE(Sentry().isStarted);
    EXPECT_TRUE(machine.clock.Sleeps().empty());
}

TEST_F(FinishProcessTest, Leaves_a_file_that_stands_where_reports_would_be_kept)
{
    finishProcess({}, {}, false);
    machine.files.AddFile(c_reports);

    finishProcess(c_log, L"", true);

    EXPECT_TRUE(machine.files.Has(c_reports));
}

} // namespace
