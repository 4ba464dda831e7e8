#include "Uninstaller/CrashReporting.h"

#include "ProductSettings.h"
#include "support/FakeFolders.h"
#include "support/ImportTableFake.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"

#include <sentry_testing.h>

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

namespace
{

using namespace Uninstaller;
using namespace Testing;

// No test of this program reports anything to anybody, whatever address it is built with.
class Offline : public testing::Environment
{
public:
    void SetUp() override { SentryTesting::SetOffline(true); }
};

const testing::Environment* const c_offline = testing::AddGlobalTestEnvironment(new Offline);

class CrashReportingTest : public testing::Test
{
protected:
    ~CrashReportingTest() override
    {
        SentryTesting::SetOffline(true);
        SentryTesting::Forget();
        EXPECT_EQ(SentryTesting::LivingObjects(), 0);
    }

    VirtualClock clock;
    TestFolder root;
    FakeFolders folders{root};
};

TEST_F(CrashReportingTest, starts_with_its_options_and_nothing_else)
{
    StartCrashReporting();

    const auto run = SentryTesting::CurrentRun();
    EXPECT_TRUE(run.isStarted);
    EXPECT_TRUE(std::regex_match(run.dsn, std::regex("https://[0-9a-f]{32}@[^/@]+/[0-9]{16}"))) << run.dsn;
    const std::wstring folder = folders.Temp() + L"Velmora\\Uninstaller\\Sentry";
    EXPECT_EQ(run.databasePath, std::string(folder.begin(), folder.end()));
    EXPECT_EQ(run.release, "velmora-windows-uninstaller@2.8.1.2171");
    EXPECT_FALSE(run.debug);
    EXPECT_EQ(run.options, (std::vector<std::string>{"dsn", "database path", "release", "debug"}));
}

// Whichever library reports, it is the program that sees to this, on each of its threads.
TEST_F(CrashReportingTest, leaves_room_for_a_report_on_the_stack)
{
    root.AddFile(L"Temp\\Velmora"); // and so no place for reports: the stand-in does not do it
    std::vector<ULONG> reserved;
    Fake<&SetThreadStackGuarantee> guarantee = [&](PULONG bytes) -> BOOL {
        reserved.push_back(*bytes);
        return TRUE;
    };

    StartCrashReporting();

    EXPECT_EQ(reserved, std::vector<ULONG>{65536});
}

TEST_F(CrashReportingTest, gives_its_folder_as_UTF_8)
{
    std::wstring temp = root.AddFolder(L"\u00e4\u65e5") + L"\\";
    Fake<&GetTempPathW> tempPath = [&](DWORD size, LPWSTR path) -> DWORD {
        if (size <= temp.size())
        {
            return static_cast<DWORD>(temp.size() + 1);
        }
        std::wmemcpy(path, temp.c_str(), temp.size() + 1);
        return static_cast<DWORD>(temp.size());
    };

    StartCrashReporting();

    EXPECT_TRUE(
        SentryTesting::CurrentRun().databasePath.ends_with("\\\xc3\xa4\xe6\x97\xa5\\Velmora\\Uninstaller\\Sentry"));
}

TEST_F(CrashReportingTest, starts_without_a_folder_too)
{
    root.AddFile(L"Temp\\Velmora");

    StartCrashReporting();

    EXPECT_TRUE(SentryTesting::CurrentRun().isStarted);
}

TEST_F(CrashReportingTest, keeps_nothing_when_it_ends)
{
    StartCrashReporting();
    EXPECT_TRUE(Exists(GetCrashReportFolder()));
    CloseCrashReporting();
    EXPECT_FALSE(Exists(GetCrashReportFolder()));
}

TEST_F(CrashReportingTest, contacts_nobody_with_the_default_address)
{
    if (std::string(VELMORA_CRASH_REPORT_DSN).find(".invalid/") == std::string::npos)
    {
        GTEST_SKIP() << "This build has an address of its own.";
    }
    SentryTesting::SetOffline(false);
    root.AddFile(L"Temp\\Velmora\\Uninstaller\\Sentry\\x.run\\1.envelope");
    bool hasThread = false;
    {
        // What sends is a thread of its own.
        Fake<&CreateThread> thread = [&](LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE, LPVOID, DWORD,
                                         LPDWORD) -> HANDLE {
            hasThread = true;
            return nullptr;
        };
        StartCrashReporting();
        sentry_capture_event(sentry_value_new_message_event(SENTRY_LEVEL_ERROR, "logger", "text"));
        CloseCrashReporting();
    }
    EXPECT_FALSE(hasThread);
    EXPECT_EQ(GetModuleHandleW(L"winhttp.dll"), nullptr);
    EXPECT_TRUE(Exists(GetCrashReportFolder() + L"\\x.run\\1.envelope"));
}

TEST_F(CrashReportingTest, ends_once_it_was_started_and_without_harm_when_it_was_not)
{
    CloseCrashReporting();
    StartCrashReporting();
    CloseCrashReporting();
    EXPECT_FALSE(SentryTesting::CurrentRun().isStarted);
    CloseCrashReporting();
}

} // namespace
