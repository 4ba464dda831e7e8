#include "Uninstaller/Preconditions.h"

#include "support/FakeFolders.h"
#include "support/FakeRegistry.h"
#include "support/FakeStatusWindow.h"
#include "support/LoggedLines.h"
#include "support/OutOfMemory.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <sentry_testing.h>

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace Uninstaller;
using namespace Testing;
using Installer::RunType;
using Lines = std::vector<std::string>;

class PreconditionsTest : public testing::Test
{
protected:
    PreconditionsTest()
    {
        sentry_init(sentry_options_new());
        desktop.onCall = [this](const std::string&) {
            linesWhenTold = log.All();
            wasReportingWhenTold = SentryTesting::CurrentRun().isStarted;
        };
    }
    ~PreconditionsTest() override { SentryTesting::Forget(); }

    // The run is ended by a check: the user is told so while nothing else has been ended, the line about it is not
    // sent, the log kept and nothing scheduled.
    void ExpectRefusal(const std::optional<Ending>& ending, ExitCode code, const std::string& checked,
                       const std::string& caption) const
    {
        EXPECT_EQ(log.All(), Lines{"|INFO|:    " + checked});
        ASSERT_TRUE(ending);
        EXPECT_EQ(EndRun(run, *ending, {}), code);

        const std::wstring wideMessage = exitCodeMessage(code);
        const std::string message(wideMessage.begin(), wideMessage.end());
        const Lines lines{"|INFO|:    " + checked, "|ERROR|:   " + message};
        EXPECT_EQ(log.All(), lines);
        EXPECT_EQ(desktop.Calls(), (Lines{"foreground", "box 16 \"" + caption + "\" \"" + message + '"'}));
        EXPECT_EQ(linesWhenTold, lines);
        EXPECT_TRUE(wasReportingWhenTold);
        EXPECT_TRUE(Exists(logger.LogPath()));
        EXPECT_FALSE(SentryTesting::CurrentRun().isStarted);
        EXPECT_TRUE(SentryTesting::CurrentRun().events.empty());
        EXPECT_TRUE(scheduled.empty());
    }

    VirtualClock clock;
    TestFolder root;
    FakeFolders folders{root};
    LoggedLines log;
    FakeStatusWindow desktop;
    ShownStatusWindow window{desktop};
    Lines linesWhenTold;
    bool wasReportingWhenTold = false; // to the crash reporter
    std::vector<std::wstring> scheduled;
    Fake<&MoveFileExW> move = [this](LPCWSTR from, LPCWSTR, DWORD) -> BOOL {
        scheduled.emplace_back(from);
        return TRUE;
    };
    Installer::Logger logger{RunType::Silent};
    RunContext run{.logger = logger, .runType = RunType::Gui, .window = window.Get()};
};

// Windows' answer to a question about its version.
class CheckWindowsVersionTest : public PreconditionsTest
{
protected:
    BOOL isNewEnough = TRUE;
    std::vector<std::pair<DWORD, BYTE>> conditions;
    Fake<&VerSetConditionMask> setCondition = [this](ULONGLONG mask, DWORD part, BYTE condition) {
        EXPECT_EQ(mask, conditions.size());
        conditions.emplace_back(part, condition);
        return mask + 1;
    };
    Fake<&VerifyVersionInfoW> verify = [this](LPOSVERSIONINFOEXW least, DWORD parts, DWORDLONG mask) {
        OSVERSIONINFOEXW expected{};
        expected.dwOSVersionInfoSize = 284;
        expected.dwMajorVersion = 10;
        expected.dwMinorVersion = 0;
        expected.dwBuildNumber = 19041;
        EXPECT_EQ(std::memcmp(least, &expected, sizeof(expected)), 0);
        EXPECT_EQ(parts, 7U);
        EXPECT_EQ(mask, 3U);
        return isNewEnough;
    };
};

TEST_F(CheckWindowsVersionTest, asks_for_10_0_19041_or_later)
{
    EXPECT_FALSE(CheckWindowsVersion(logger));

    EXPECT_EQ(log.All(), Lines{"|INFO|:    Checking to sure we are running on Windows 10.0.19041 or higher..."});
    EXPECT_EQ(conditions, (decltype(conditions){{2, BYTE{3}}, {1, BYTE{3}}, {4, BYTE{3}}}));
    EXPECT_TRUE(SentryTesting::CurrentRun().isStarted);
}

TEST_F(CheckWindowsVersionTest, refuses_an_older_one)
{
    isNewEnough = FALSE;

    ExpectRefusal(CheckWindowsVersion(logger), EXIT_ERROR_WINDOWS_VERSION,
                  "Checking to sure we are running on Windows 10.0.19041 or higher...", "Version Not Supported");
}

// A process whose token belongs to a user and is elevated or not.
class CheckElevationTest : public PreconditionsTest
{
protected:
    DWORD elevation = 1;
    BOOL isLocalSystem = FALSE;
    DWORD failure = ERROR_SUCCESS; // of the query for the user
    std::vector<std::string> asked;
    Fake<&GetTokenInformation> getTokenInformation = [this](HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID data,
                                                            DWORD size, PDWORD needed) -> BOOL {
        if (kind == TokenElevation)
        {
            EXPECT_EQ(token, GetCurrentThreadEffectiveToken());
            asked.emplace_back("elevation");
            *static_cast<DWORD*>(data) = elevation;
            *needed = size;
            return TRUE;
        }
        EXPECT_EQ(kind, TokenUser);
        EXPECT_EQ(token, GetCurrentProcessToken());
        *needed = sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE;
        if (failure != ERROR_SUCCESS || size < *needed)
        {
            SetLastError(failure != ERROR_SUCCESS ? failure : ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
        static_cast<TOKEN_USER*>(data)->User.Sid = sid;
        asked.emplace_back("user");
        return TRUE;
    };
    Fake<&IsWellKnownSid> isWellKnownSid = [this](PSID user, WELL_KNOWN_SID_TYPE kind) {
        EXPECT_EQ(user, sid);
        EXPECT_EQ(kind, static_cast<WELL_KNOWN_SID_TYPE>(22));
        asked.emplace_back("Local System");
        return isLocalSystem;
    };
    const PSID sid = this;
    const Lines everything{"user", "Local System", "elevation"};
};

TEST_F(CheckElevationTest, lets_an_elevated_user_go_on)
{
    EXPECT_FALSE(CheckElevation(logger));

    EXPECT_EQ(asked, everything);
    EXPECT_EQ(log.All(), Lines{"|INFO|:    Checking to see if elevated..."});
}

TEST_F(CheckElevationTest, lets_Local_System_go_on_and_asks_for_the_elevation_all_the_same)
{
    isLocalSystem = TRUE;
    elevation = 0;

    EXPECT_FALSE(CheckElevation(logger));

    EXPECT_EQ(asked, everything);
}

TEST_F(CheckElevationTest, refuses_anybody_else)
{
    elevation = 0;

    ExpectRefusal(CheckElevation(logger), EXIT_ERROR_NOT_ELEVATED, "Checking to see if elevated...",
                  "Uninstaller Not Elevated");

    EXPECT_EQ(asked, everything);
}

TEST_F(CheckElevationTest, throws_when_the_token_cannot_be_asked)
{
    failure = ERROR_ACCESS_DENIED;

    try
    {
        CheckElevation(logger);
        FAIL() << "nothing was thrown";
    }
    catch (const wil::ResultException& exception)
    {
        EXPECT_EQ(exception.GetErrorCode(), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    }
    EXPECT_TRUE(SentryTesting::CurrentRun().isStarted);
}

TEST_F(CheckElevationTest, throws_when_there_is_no_memory_for_the_answer)
{
    std::optional<OutOfMemory> outOfMemory;
    Fake<&GetTokenInformation> asking = [&](HANDLE, TOKEN_INFORMATION_CLASS, LPVOID, DWORD, PDWORD needed) -> BOOL {
        *needed = 100;
        outOfMemory.emplace();
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    };
    HRESULT result = S_OK;

    try
    {
        CheckElevation(logger);
    }
    catch (const wil::ResultException& exception)
    {
        result = exception.GetErrorCode();
    }
    outOfMemory.reset();

    EXPECT_EQ(result, E_OUTOFMEMORY);
}

class FindInstallFolderTest : public PreconditionsTest
{
protected:
    void AddEntry(const std::wstring& location, const std::wstring& version)
    {
        const std::wstring key = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Velmora";
        registry.SetString(key, L"InstallLocation", location);
        registry.SetString(key, L"DisplayVersion", version);
    }

    FakeRegistry registry;
};

TEST_F(FindInstallFolderTest, takes_the_folder_of_the_entry_and_logs_it_with_the_version)
{
    AddEntry(L"D:\\Apps\\Velmora\\current", L"2.8.1.70000");

    EXPECT_EQ(FindInstallFolder(logger).path, L"D:\\Apps\\Velmora\\");

    EXPECT_EQ(ReadFileText(logger.LogPath()),
              "|INFO|:    Found Velmora install entry at 'D:\\Apps\\Velmora\\', version 2.8.1.4464.\r\n");
}

TEST_F(FindInstallFolderTest, takes_the_default_folder_without_an_entry)
{
    EXPECT_EQ(FindInstallFolder(logger).path, folders.ProgramFiles() + L"\\Velmora\\");

    EXPECT_EQ(ReadFileText(logger.LogPath()),
              "|INFO|:    Did not find previous Velmora install entry. Will continue with assuming default install "
              "location.\r\n"
              "|INFO|:    No previous Velmora install directory found, using default.\r\n");
}

TEST_F(FindInstallFolderTest, takes_the_default_folder_for_an_entry_that_makes_no_sense)
{
    AddEntry(L"D:\\Apps\\Velmora", L"x");

    EXPECT_EQ(FindInstallFolder(logger).path, folders.ProgramFiles() + L"\\Velmora\\");
}

TEST_F(FindInstallFolderTest, tells_whether_others_live_in_the_folder)
{
    AddEntry(root.AddFolder(L"Velmora"), L"2.8.1");
    EXPECT_FALSE(FindInstallFolder(logger).isProtected);

    AddEntry(folders.ProgramFiles(), L"2.8.1");
    EXPECT_TRUE(FindInstallFolder(logger).isProtected);
}

} // namespace
