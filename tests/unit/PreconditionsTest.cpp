#include "Uninstaller/Preconditions.h"

#include "support/unit/FailureLog.h"
#include "support/unit/OutOfMemory.h"
#include "support/unit/SimulatedMachine.h"

#include <windows.h>

#include <gmock/gmock.h>

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
    SimulatedMachine machine;
    Installer::Logger logger{RunType::Silent};
};

TEST_F(PreconditionsTest, CheckWindowsVersion_asks_for_10_0_19041_or_later)
{
    std::vector<std::pair<DWORD, BYTE>> conditions;
    const Fake<&VerSetConditionMask> setCondition = [&](ULONGLONG mask, DWORD part, BYTE condition) {
        EXPECT_EQ(mask, conditions.size());
        conditions.emplace_back(part, condition);
        return mask + 1;
    };
    const Fake<&VerifyVersionInfoW> verify = [](LPOSVERSIONINFOEXW least, DWORD parts, DWORDLONG mask) {
        OSVERSIONINFOEXW expected{};
        expected.dwOSVersionInfoSize = 284;
        expected.dwMajorVersion = 10;
        expected.dwMinorVersion = 0;
        expected.dwBuildNumber = 19041;
        EXPECT_EQ(std::memcmp(least, &expected, sizeof(expected)), 0);
        EXPECT_EQ(parts, 7U);
        EXPECT_EQ(mask, 3U);
        return TRUE;
    };

    EXPECT_FALSE(CheckWindowsVersion(logger));

    EXPECT_EQ(machine.Log(), Lines{"|INFO|:    Checking to sure we are running on Windows 10.0.19041 or higher..."});
    EXPECT_EQ(conditions, (decltype(conditions){{2, BYTE{3}}, {1, BYTE{3}}, {4, BYTE{3}}}));
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
    SID systemSid{.Revision = SID_REVISION, .SubAuthorityCount = 0, .IdentifierAuthority = {}, .SubAuthority = {}};
    const PSID sid = &systemSid;
    const Lines everything{"user", "Local System", "elevation"};
};

TEST_F(CheckElevationTest, Lets_an_elevated_user_go_on)
{
    EXPECT_FALSE(CheckElevation(logger));

    EXPECT_EQ(asked, everything);
    EXPECT_EQ(machine.Log(), Lines{"|INFO|:    Checking to see if elevated..."});
}

TEST_F(CheckElevationTest, Lets_Local_System_go_on_and_asks_for_the_elevation_all_the_same)
{
    isLocalSystem = TRUE;
    elevation = 0;

    EXPECT_FALSE(CheckElevation(logger));

    EXPECT_EQ(asked, everything);
}

TEST_F(CheckElevationTest, Refuses_anybody_else)
{
    elevation = 0;

    EXPECT_EQ(CheckElevation(logger)->outcome, Outcome::NotElevated);

    EXPECT_EQ(asked, everything);
}

TEST_F(CheckElevationTest, Throws_when_the_token_cannot_be_asked)
{
    failure = ERROR_ACCESS_DENIED;

    EXPECT_THAT([this] { CheckElevation(logger); }, ThrowsResult(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)));
}

TEST_F(CheckElevationTest, Throws_when_there_is_no_memory_for_the_answer)
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
        machine.ClaimFolder(location);
        machine.registry.SetString(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Velmora",
                                   L"DisplayVersion", version);
    }
};

TEST_F(FindInstallFolderTest, Takes_the_folder_of_the_entry_and_logs_it_with_the_version)
{
    AddEntry(L"D:\\Apps\\Velmora\\current", L"2.8.1.70000");

    EXPECT_EQ(FindInstallFolder(logger).path, L"D:\\Apps\\Velmora\\");

    EXPECT_EQ(machine.Log(),
              Lines{R"(|INFO|:    Found Velmora install entry at 'D:\Apps\Velmora\', version 2.8.1.4464.)"});
}

TEST_F(FindInstallFolderTest, Takes_the_default_folder_without_an_entry)
{
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Velmora");

    EXPECT_EQ(FindInstallFolder(logger).path, L"C:\\Program Files\\Velmora\\");

    EXPECT_EQ(machine.Log(),
              (Lines{"|INFO|:    Did not find previous Velmora install entry. Will continue with assuming "
                     "default install location.",
                     "|INFO|:    No previous Velmora install directory found, using default."}));
}

TEST_F(FindInstallFolderTest, Tells_whether_the_folder_is_protected)
{
    EXPECT_FALSE(FindInstallFolder(logger).isProtected);

    AddEntry(L"C:\\Program Files", L"2.8.1");
    EXPECT_TRUE(FindInstallFolder(logger).isProtected);
}

} // namespace
