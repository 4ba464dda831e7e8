#include "Uninstaller/CrashReporting.h"

#include "ProductSettings.h"
#include "support/common/ImportTableFake.h"
#include "support/common/Text.h"
#include "support/unit/FakeFolders.h"
#include "support/unit/FakeSentry.h"
#include "support/unit/TestFolder.h"
#include "support/unit/VirtualClock.h"

#include <gmock/gmock.h>

#include <regex>
#include <string>
#include <vector>

namespace
{

using namespace Uninstaller;
using namespace Testing;

class CrashReportingTest : public testing::Test
{
protected:
    VirtualClock clock;
    TestFolder root;
    FakeFolders folders{root};
};

TEST_F(CrashReportingTest, Starts_with_its_options_and_nothing_else)
{
    StartCrashReporting();

    EXPECT_TRUE(Sentry().isStarted);
    EXPECT_THAT(Sentry().options,
                testing::ElementsAre("dsn " VELMORA_CRASH_REPORT_DSN,
                                     "database path " + Narrow(folders.Temp() + L"Velmora\\Uninstaller\\Sentry"),
                                     "release velmora-windows-uninstaller@2.8.1.2171", "debug 0"));
    EXPECT_TRUE(std::regex_match(VELMORA_CRASH_REPORT_DSN, std::regex("https://[0-9a-f]{32}@[^/@]+/[0-9]{16}")));
}

// Whichever library reports, it is the program that sees to this, on each of its threads.
TEST_F(CrashReportingTest, Leaves_room_for_a_report_on_the_stack)
{
    std::vector<ULONG> reserved;
    Fake<&SetThreadStackGuarantee> guarantee = [&](PULONG bytes) -> BOOL {
        reserved.push_back(*bytes);
        return TRUE;
    };

    StartCrashReporting();

    EXPECT_EQ(reserved, std::vector<ULONG>{65536});
}

TEST_F(CrashReportingTest, Gives_its_folder_as_UTF_8)
{
    std::wstring temp = root.AddFolder(L"\u00e4\u65e5") + L"\\";
    Fake<&GetTempPathW> tempPath = [&](DWORD size, LPWSTR path) { return GivePath(temp, size, path); };

    StartCrashReporting();

    EXPECT_THAT(Sentry().options,
                testing::Contains(testing::EndsWith("\\\xc3\xa4\xe6\x97\xa5\\Velmora\\Uninstaller\\Sentry")));
}

TEST_F(CrashReportingTest, Ends_once_it_was_started_and_without_harm_when_it_was_not)
{
    CloseCrashReporting();
    StartCrashReporting();
    CloseCrashReporting();
    EXPECT_FALSE(Sentry().isStarted);
    EXPECT_EQ(Sentry().closes, 1);
}

} // namespace
