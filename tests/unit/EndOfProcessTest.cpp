#include "Uninstaller/EndOfProcess.h"

#include "Uninstaller/CrashReporting.h"
#include "support/FakeFolders.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"

#include <sentry_testing.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace Uninstaller;
using namespace Testing;

class FinishProcessTest : public testing::Test
{
protected:
    FinishProcessTest() { StartCrashReporting(); }
    ~FinishProcessTest() override { SentryTesting::Forget(); }

    VirtualClock clock;
    TestFolder root;
    FakeFolders folders{root};
    std::wstring log = root.AddFile(L"run.log");
    std::wstring report = root.AddFile(L"Temp\\Velmora\\Uninstaller\\Sentry\\pending\\report.envelope");
    std::vector<std::string> order;
    std::vector<std::pair<std::wstring, DWORD>> scheduled;
    Fake<&MoveFileExW> move = [this](LPCWSTR from, LPCWSTR to, DWORD flags) -> BOOL {
        order.emplace_back(Exists(log) ? "schedule" : "schedule after the log");
        EXPECT_EQ(to, nullptr);
        scheduled.emplace_back(from, flags);
        return FALSE; // its result does not matter
    };
    Fake<&DeleteFileW> deleteFile = [this](LPCWSTR path) {
        if (path == log)
        {
            order.emplace_back(SentryTesting::CurrentRun().isStarted ? "delete the log" : "delete the log too late");
        }
        else
        {
            EXPECT_FALSE(SentryTesting::CurrentRun().isStarted);
        }
        return decltype(deleteFile)::Real(path);
    };
};

TEST_F(FinishProcessTest, schedules_the_file_then_deletes_the_log_then_ends_crash_reporting)
{
    finishProcess(log, L"C:\\some\\program.exe", true);

    EXPECT_EQ(scheduled, (decltype(scheduled){{L"C:\\some\\program.exe", 4}}));
    EXPECT_EQ(order, (std::vector<std::string>{"schedule", "delete the log"}));
    EXPECT_FALSE(Exists(log));
    EXPECT_FALSE(SentryTesting::CurrentRun().isStarted);
    EXPECT_EQ(SentryTesting::CurrentRun().closes, 1);
    EXPECT_FALSE(Exists(folders.Temp() + L"Velmora\\Uninstaller\\Sentry"));
    EXPECT_TRUE(Exists(folders.Temp() + L"Velmora\\Uninstaller"));
}

TEST_F(FinishProcessTest, keeps_the_log_unless_told_otherwise)
{
    finishProcess(log, L"C:\\some\\program.exe", false);

    EXPECT_TRUE(Exists(log));
    EXPECT_EQ(scheduled.size(), 1U);
    EXPECT_FALSE(Exists(report));
}

TEST_F(FinishProcessTest, schedules_nothing_where_there_is_nothing_to_schedule)
{
    finishProcess(log, L"", true);

    EXPECT_TRUE(scheduled.empty());
    EXPECT_FALSE(Exists(log));
    EXPECT_FALSE(Exists(report));
}

TEST_F(FinishProcessTest, does_not_mind_what_it_cannot_delete)
{
    SetFileAttributesW(log.c_str(), FILE_ATTRIBUTE_READONLY);
    SetFileAttributesW(report.c_str(), FILE_ATTRIBUTE_READONLY);

    finishProcess(log, L"", true);

    EXPECT_TRUE(Exists(log));
    EXPECT_TRUE(Exists(report));
    EXPECT_FALSE(SentryTesting::CurrentRun().isStarted);
    EXPECT_TRUE(clock.Sleeps().empty());
}

TEST_F(FinishProcessTest, does_not_mind_what_is_not_there)
{
    decltype(deleteFile)::Real(log.c_str());
    decltype(deleteFile)::Real(report.c_str());
    CloseCrashReporting();
    RemoveTestFolder(folders.Temp() + L"Velmora\\Uninstaller\\Sentry");
    ASSERT_FALSE(Exists(folders.Temp() + L"Velmora\\Uninstaller\\Sentry"));

    finishProcess(log, L"", true);

    EXPECT_TRUE(clock.Sleeps().empty());
}

TEST_F(FinishProcessTest, leaves_a_file_that_stands_where_reports_would_be_kept)
{
    CloseCrashReporting();
    RemoveTestFolder(folders.Temp() + L"Velmora\\Uninstaller\\Sentry");
    const std::wstring file = root.AddFile(L"Temp\\Velmora\\Uninstaller\\Sentry");
    StartCrashReporting();

    finishProcess(log, L"", true);

    EXPECT_TRUE(Exists(file));
}

} // namespace
