#include "Uninstaller/CrashReporting.h"

#include "support/FakeFolders.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"

#include <sentry_testing.h>

#include <gtest/gtest.h>

#include <regex>
#include <string>

namespace
{

using namespace Uninstaller;
using namespace Testing;

class CrashReportingTest : public testing::Test
{
protected:
    ~CrashReportingTest() override
    {
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

TEST_F(CrashReportingTest, ends_once_it_was_started_and_without_harm_when_it_was_not)
{
    CloseCrashReporting();
    StartCrashReporting();
    CloseCrashReporting();
    EXPECT_FALSE(SentryTesting::CurrentRun().isStarted);
    CloseCrashReporting();
}

} // namespace
