#include "Installer/Registry.h"

#include "support/FailureLog.h"
#include "support/FakeRegistry.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <shlobj.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using Pauses = std::vector<DWORD>;
using Calls = std::vector<std::string>;
using Version = std::array<std::uint16_t, 4>;

constexpr wchar_t c_uninstall[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Velmora";
constexpr wchar_t c_run[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run";
constexpr wchar_t c_approved[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\StartupApproved\\Run";
constexpr wchar_t c_applications[] = L"SOFTWARE\\RegisteredApplications";

const std::string c_openUninstall = "open SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Velmora f003f";
const std::string c_deleteUninstall = "delete tree SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Velmora";
const std::string c_createRun = "create SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run f003f";
const std::string c_createApproved =
    "create SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\StartupApproved\\Run f003f";
const std::string c_deleteRun = "delete SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run Velmora";
const std::string c_deleteApproved =
    "delete SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\StartupApproved\\Run Velmora";
const std::string c_deleteAppPaths = "delete tree SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Velmora.exe";
const std::string c_createApplications = "create SOFTWARE\\RegisteredApplications f003f";
const std::string c_deleteApplication = "delete SOFTWARE\\RegisteredApplications Velmora";
const std::string c_deleteSettings = "delete tree SOFTWARE\\Velmora";
const std::string c_deleteCapabilities = "delete tree SOFTWARE\\Velmora\\Capabilities";
const std::string c_deleteProtocol = "delete tree SOFTWARE\\Classes\\Velmora.Protocol";
const std::string c_deleteScheme = "delete tree SOFTWARE\\Classes\\velmora";

constexpr HRESULT c_accessDenied = HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);

class RegistryTest : public testing::Test
{
protected:
    void TearDown() override { EXPECT_EQ(registry.OpenKeys(), 0U); }

    void AddEntry(std::wstring_view location, std::wstring_view version)
    {
        registry.SetString(c_uninstall, L"InstallLocation", location);
        registry.SetString(c_uninstall, L"DisplayVersion", version);
    }

    std::wstring ReadLocation(std::wstring_view location)
    {
        AddEntry(location, L"2.8.1.2171");
        const InstallRecord record = ReadInstallRecord();
        EXPECT_EQ(record.found, !record.location.empty());
        return record.location;
    }

    // The version, or all 9 when the record was not found.
    Version ReadVersion(std::wstring_view version)
    {
        AddEntry(L"C:\\Velmora", version);
        const InstallRecord record = ReadInstallRecord();
        if (!record.found)
        {
            EXPECT_EQ(record.location, L"");
            EXPECT_EQ(record.version, Version{});
            return {9, 9, 9, 9};
        }
        return record.version;
    }

    void ExpectNotFound()
    {
        const InstallRecord record = ReadInstallRecord();
        EXPECT_FALSE(record.found);
        EXPECT_EQ(record.location, L"");
        EXPECT_EQ(record.version, Version{});
    }

    VirtualClock clock;
    FakeRegistry registry;
    FailureLog failures;
    std::vector<std::tuple<LONG, UINT, LPCVOID, LPCVOID>> notified;
    Fake<&SHChangeNotify> notify = [this](LONG event, UINT flags, LPCVOID first, LPCVOID second) {
        notified.emplace_back(event, flags, first, second);
    };
};

constexpr Version c_notFound{9, 9, 9, 9};

TEST_F(RegistryTest, ReadInstallRecord_reads_the_entry_with_full_access_and_nothing_expanded)
{
    AddEntry(L"C:\\Program Files\\Velmora\\", L"2.8.1.2171");

    const InstallRecord record = ReadInstallRecord();

    EXPECT_TRUE(record.found);
    EXPECT_EQ(record.location, L"C:\\Program Files\\Velmora\\");
    EXPECT_EQ(record.version, (Version{2, 8, 1, 2171}));
    ASSERT_GE(registry.Calls().size(), 3U);
    EXPECT_EQ(registry.Calls()[0], c_openUninstall);
    for (std::size_t i = 1; i < registry.Calls().size(); ++i)
    {
        EXPECT_THAT(registry.Calls()[i], testing::StartsWith("get "));
        EXPECT_THAT(registry.Calls()[i], testing::EndsWith(" 10000006"));
    }
    EXPECT_THAT(registry.Calls()[1], testing::HasSubstr("InstallLocation"));
    EXPECT_THAT(registry.Calls().back(), testing::HasSubstr("DisplayVersion"));
}

TEST_F(RegistryTest, ReadInstallRecord_finds_nothing_where_there_is_no_entry_and_records_no_failure)
{
    ExpectNotFound();

    EXPECT_EQ(registry.Calls(), Calls{c_openUninstall});
    EXPECT_TRUE(failures.Entries().empty());
}

TEST_F(RegistryTest, ReadInstallRecord_finds_nothing_where_access_is_denied)
{
    AddEntry(L"C:\\Velmora", L"1");
    registry.FailCall(c_openUninstall, ERROR_ACCESS_DENIED);

    ExpectNotFound();

    EXPECT_EQ(registry.Calls(), Calls{c_openUninstall});
}

TEST_F(RegistryTest, ReadInstallRecord_needs_the_location)
{
    registry.SetString(c_uninstall, L"DisplayVersion", L"1");

    ExpectNotFound();
}

TEST_F(RegistryTest, ReadInstallRecord_needs_the_version)
{
    registry.SetString(c_uninstall, L"InstallLocation", L"C:\\Velmora");

    ExpectNotFound();
}

TEST_F(RegistryTest, ReadInstallRecord_refuses_values_that_are_no_text)
{
    for (const DWORD type : {DWORD{REG_DWORD}, DWORD{REG_BINARY}, DWORD{REG_MULTI_SZ}})
    {
        AddEntry(L"C:\\Velmora", L"1");
        registry.SetValue(c_uninstall, L"InstallLocation", type, {1, 0, 0, 0});
        ExpectNotFound();

        AddEntry(L"C:\\Velmora", L"1");
        registry.SetValue(c_uninstall, L"DisplayVersion", type, {1, 0, 0, 0});
        ExpectNotFound();
    }
}

TEST_F(RegistryTest, ReadInstallRecord_does_not_expand_a_value_with_references)
{
    AddEntry(L"", L"1");
    registry.SetString(c_uninstall, L"InstallLocation", L"%ProgramFiles%\\Velmora", REG_EXPAND_SZ);

    EXPECT_EQ(ReadInstallRecord().location, L"%ProgramFiles%\\Velmora\\");
}

TEST_F(RegistryTest, ReadInstallRecord_reads_a_long_location_whole)
{
    const std::wstring location = L"C:\\" + std::wstring(20'000, L'x') + L"\\";

    EXPECT_EQ(ReadLocation(location), location);
}

TEST_F(RegistryTest, ReadInstallRecord_copes_with_a_text_without_an_end)
{
    AddEntry(L"", L"1");
    registry.SetValue(c_uninstall, L"InstallLocation", REG_SZ, {'D', 0, ':', 0, '\\', 0, 'V', 0});

    EXPECT_EQ(ReadInstallRecord().location, L"D:\\V\\");
}

TEST_F(RegistryTest, ReadInstallRecord_refuses_values_of_no_bytes)
{
    AddEntry(L"", L"1");
    registry.SetValue(c_uninstall, L"InstallLocation", REG_SZ, {});

    ExpectNotFound();
}

TEST_F(RegistryTest, ReadInstallRecord_ends_the_location_with_one_backslash)
{
    EXPECT_EQ(ReadLocation(L"C:\\Program Files\\Velmora"), L"C:\\Program Files\\Velmora\\");
    EXPECT_EQ(ReadLocation(L"C:\\Program Files\\Velmora\\"), L"C:\\Program Files\\Velmora\\");
    EXPECT_EQ(ReadLocation(L"C:\\Program Files\\Velmora\\\\\\"), L"C:\\Program Files\\Velmora\\");
}

TEST_F(RegistryTest, ReadInstallRecord_cuts_off_the_folder_of_the_running_version)
{
    EXPECT_EQ(ReadLocation(L"C:\\Program Files\\Velmora\\current\\"), L"C:\\Program Files\\Velmora\\");
    EXPECT_EQ(ReadLocation(L"C:\\Program Files\\Velmora\\current"), L"C:\\Program Files\\Velmora\\");
    EXPECT_EQ(ReadLocation(L"D:\\Appcurrent"), L"D:\\App\\");
    EXPECT_EQ(ReadLocation(L"C:\\Velmora\\\\current"), L"C:\\Velmora\\\\");
    EXPECT_EQ(ReadLocation(L"C:\\Velmora\\Current"), L"C:\\Velmora\\Current\\");
    EXPECT_EQ(ReadLocation(L"C:\\current\\current"), L"C:\\current\\");
    EXPECT_EQ(ReadLocation(L"C:\\currents"), L"C:\\currents\\");
}

TEST_F(RegistryTest, ReadInstallRecord_refuses_a_location_of_which_nothing_is_left)
{
    EXPECT_EQ(ReadLocation(L""), L"");
    EXPECT_EQ(ReadLocation(L"\\\\\\"), L"");
    EXPECT_EQ(ReadLocation(L"current"), L"");
    EXPECT_EQ(ReadLocation(L"current\\"), L"");
}

TEST_F(RegistryTest, ReadInstallRecord_reads_up_to_four_numbers)
{
    EXPECT_EQ(ReadVersion(L"2.8.1.2171"), (Version{2, 8, 1, 2171}));
    EXPECT_EQ(ReadVersion(L"3"), (Version{3, 0, 0, 0}));
    EXPECT_EQ(ReadVersion(L"3."), (Version{3, 0, 0, 0}));
    EXPECT_EQ(ReadVersion(L""), (Version{0, 0, 0, 0}));
    EXPECT_EQ(ReadVersion(L"..."), (Version{0, 0, 0, 0}));
    EXPECT_EQ(ReadVersion(L"1..5"), (Version{1, 0, 5, 0}));
    EXPECT_EQ(ReadVersion(L".7"), (Version{0, 7, 0, 0}));
    EXPECT_EQ(ReadVersion(L"1.2.3.4.5"), (Version{1, 2, 3, 4}));
    EXPECT_EQ(ReadVersion(L"1.2.3.4.x"), (Version{1, 2, 3, 4}));
    EXPECT_EQ(ReadVersion(L"1.2.3.4."), (Version{1, 2, 3, 4}));
}

TEST_F(RegistryTest, ReadInstallRecord_reads_numbers_as_the_standard_conversion_does)
{
    EXPECT_EQ(ReadVersion(L" 7"), (Version{7, 0, 0, 0}));
    EXPECT_EQ(ReadVersion(L"\t+7.-1"), (Version{7, 65535, 0, 0}));
    EXPECT_EQ(ReadVersion(L"12beta.3 rc"), (Version{12, 3, 0, 0}));
    EXPECT_EQ(ReadVersion(L"0x10.010"), (Version{0, 10, 0, 0}));
    EXPECT_EQ(ReadVersion(L"1\u20ac"), (Version{1, 0, 0, 0}));
}

TEST_F(RegistryTest, ReadInstallRecord_keeps_the_low_16_bits_of_a_number)
{
    EXPECT_EQ(ReadVersion(L"70000"), (Version{4464, 0, 0, 0}));
    EXPECT_EQ(ReadVersion(L"65535.65536"), (Version{65535, 0, 0, 0}));
    EXPECT_EQ(ReadVersion(L"2147483647.-2147483648"), (Version{65535, 0, 0, 0}));
}

TEST_F(RegistryTest, ReadInstallRecord_resets_the_whole_record_for_a_field_without_a_number)
{
    EXPECT_EQ(ReadVersion(L"x.1"), c_notFound);
    EXPECT_EQ(ReadVersion(L"1.2.3.x"), c_notFound);
    EXPECT_EQ(ReadVersion(L"1. "), c_notFound);
    EXPECT_EQ(ReadVersion(L"\u0661.2"), c_notFound); // an Arabic digit
    EXPECT_EQ(ReadVersion(L"-"), c_notFound);
}

TEST_F(RegistryTest, ReadInstallRecord_resets_the_whole_record_for_a_number_out_of_range)
{
    EXPECT_EQ(ReadVersion(L"2147483648"), c_notFound);
    EXPECT_EQ(ReadVersion(L"1.99999999999999999999"), c_notFound);
}

TEST_F(RegistryTest, ReadInstallRecord_takes_a_version_that_is_no_valid_text_for_empty)
{
    EXPECT_EQ(ReadVersion(L"1.\xd800"), (Version{0, 0, 0, 0}));
}

TEST_F(RegistryTest, OpenMachineKey_creates_a_missing_key_and_gives_full_access)
{
    wil::unique_hkey key;
    EXPECT_EQ(OpenMachineKey(L"SOFTWARE\\New", key), S_OK);

    EXPECT_TRUE(key);
    EXPECT_TRUE(registry.HasKey(L"SOFTWARE\\New"));
    EXPECT_EQ(registry.Calls(), Calls{"create SOFTWARE\\New f003f"});
}

TEST_F(RegistryTest, OpenMachineKey_returns_and_records_a_failure)
{
    registry.FailCall("create SOFTWARE\\New f003f", ERROR_ACCESS_DENIED);

    wil::unique_hkey key;
    EXPECT_EQ(OpenMachineKey(L"SOFTWARE\\New", key), c_accessDenied);

    EXPECT_FALSE(key);
    EXPECT_TRUE(failures.Contains("Registry", c_accessDenied));
}

TEST_F(RegistryTest, RemoveStartupEntry_deletes_both_values_and_leaves_their_neighbours)
{
    registry.SetString(c_run, L"Velmora", L"velmora.exe");
    registry.SetString(c_run, L"Velmora2", L"other.exe");
    registry.SetValue(c_approved, L"Velmora", REG_BINARY, {2});
    registry.SetValue(c_approved, L"Other", REG_BINARY, {2});

    EXPECT_EQ(RemoveStartupEntry(), S_OK);

    EXPECT_EQ(registry.Calls(), (Calls{c_createRun, c_createApproved, c_deleteRun, c_deleteApproved}));
    EXPECT_FALSE(registry.FindValue(c_run, L"Velmora"));
    EXPECT_TRUE(registry.FindValue(c_run, L"Velmora2"));
    EXPECT_FALSE(registry.FindValue(c_approved, L"Velmora"));
    EXPECT_TRUE(registry.FindValue(c_approved, L"Other"));
    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST_F(RegistryTest, RemoveStartupEntry_takes_missing_values_for_done_and_creates_missing_keys)
{
    EXPECT_EQ(RemoveStartupEntry(), S_OK);

    EXPECT_EQ(registry.Calls(), (Calls{c_createRun, c_createApproved, c_deleteRun, c_deleteApproved}));
    EXPECT_TRUE(registry.HasKey(c_run));
    EXPECT_TRUE(registry.HasKey(c_approved));
    EXPECT_TRUE(failures.Entries().empty());
    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST_F(RegistryTest, RemoveStartupEntry_gives_up_after_ten_attempts_and_as_many_pauses)
{
    registry.FailCall(c_deleteRun, ERROR_ACCESS_DENIED);

    EXPECT_EQ(RemoveStartupEntry(), c_accessDenied);

    EXPECT_EQ(registry.Calls().size(), 30U); // the approval value was not tried
    EXPECT_EQ(registry.Calls()[2], c_deleteRun);
    EXPECT_EQ(registry.Calls()[3], c_createRun);
    EXPECT_EQ(clock.Sleeps(), Pauses(10, 1000));
    EXPECT_TRUE(failures.Contains("Registry", c_accessDenied));
}

TEST_F(RegistryTest, RemoveStartupEntry_starts_again_at_the_first_key)
{
    registry.FailCall(c_createRun, ERROR_ACCESS_DENIED, 1);
    registry.FailCall(c_createApproved, ERROR_ACCESS_DENIED, 1);
    registry.FailCall(c_deleteApproved, ERROR_ACCESS_DENIED, 1);

    EXPECT_EQ(RemoveStartupEntry(), S_OK);

    EXPECT_EQ(registry.Calls(),
              (Calls{c_createRun,                                                  //
                     c_createRun, c_createApproved,                                //
                     c_createRun, c_createApproved, c_deleteRun, c_deleteApproved, //
                     c_createRun, c_createApproved, c_deleteRun, c_deleteApproved}));
    EXPECT_EQ(clock.Sleeps(), Pauses(3, 1000));
}

TEST_F(RegistryTest, RemoveStartupEntry_returns_the_code_of_the_last_attempt)
{
    registry.FailCall(c_createApproved, ERROR_KEY_DELETED);

    EXPECT_EQ(RemoveStartupEntry(), HRESULT_FROM_WIN32(ERROR_KEY_DELETED));
}

TEST_F(RegistryTest, DeregisterApplication_keeps_the_settings)
{
    registry.AddKey(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Velmora.exe");
    registry.AddKey(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Velmora.exe2");
    registry.SetString(c_applications, L"Velmora", L"x");
    registry.SetString(c_applications, L"Other", L"x");
    registry.SetString(L"SOFTWARE\\Velmora", L"Setting", L"x");
    registry.AddKey(L"SOFTWARE\\Velmora\\Capabilities\\UrlAssociations");
    registry.AddKey(L"SOFTWARE\\Velmora\\Capabilities");
    registry.AddKey(L"SOFTWARE\\Velmora\\Other");
    registry.AddKey(L"SOFTWARE\\Classes\\Velmora.Protocol");
    registry.AddKey(L"SOFTWARE\\Classes\\Velmora");

    EXPECT_EQ(DeregisterApplication(false), S_OK);

    EXPECT_EQ(registry.Calls(), (Calls{c_deleteAppPaths, c_createApplications, c_deleteApplication,
                                       c_deleteCapabilities, c_deleteProtocol, c_deleteScheme}));
    EXPECT_FALSE(registry.HasKey(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Velmora.exe"));
    EXPECT_TRUE(registry.HasKey(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Velmora.exe2"));
    EXPECT_FALSE(registry.FindValue(c_applications, L"Velmora"));
    EXPECT_TRUE(registry.FindValue(c_applications, L"Other"));
    EXPECT_TRUE(registry.FindValue(L"SOFTWARE\\Velmora", L"Setting"));
    EXPECT_TRUE(registry.HasKey(L"SOFTWARE\\Velmora\\Other"));
    EXPECT_FALSE(registry.HasKey(L"SOFTWARE\\Velmora\\Capabilities"));
    EXPECT_FALSE(registry.HasKey(L"SOFTWARE\\Velmora\\Capabilities\\UrlAssociations"));
    EXPECT_FALSE(registry.HasKey(L"SOFTWARE\\Classes\\Velmora.Protocol"));
    EXPECT_FALSE(registry.HasKey(L"SOFTWARE\\Classes\\velmora"));
    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST_F(RegistryTest, DeregisterApplication_removes_the_settings_when_asked_to)
{
    registry.SetString(L"SOFTWARE\\Velmora", L"Setting", L"x");
    registry.AddKey(L"SOFTWARE\\Velmora\\Capabilities");

    EXPECT_EQ(DeregisterApplication(true), S_OK);

    EXPECT_EQ(registry.Calls(), (Calls{c_deleteAppPaths, c_createApplications, c_deleteApplication, c_deleteSettings,
                                       c_deleteProtocol, c_deleteScheme}));
    EXPECT_FALSE(registry.HasKey(L"SOFTWARE\\Velmora"));
}

TEST_F(RegistryTest, DeregisterApplication_tells_the_shell_once_at_the_end)
{
    registry.FailCall(c_deleteScheme, ERROR_ACCESS_DENIED, 2);
    Fake<&SHChangeNotify> checking = [this](LONG event, UINT flags, LPCVOID first, LPCVOID second) {
        EXPECT_EQ(registry.Calls().back(), c_deleteScheme);
        EXPECT_EQ(registry.OpenKeys(), 1U);
        notified.emplace_back(event, flags, first, second);
    };

    EXPECT_EQ(DeregisterApplication(false), S_OK);

    ASSERT_EQ(notified.size(), 1U);
    EXPECT_EQ(notified[0], std::make_tuple(0x08000000L, 0U, nullptr, nullptr));
    EXPECT_EQ(clock.Sleeps(), Pauses(2, 1000));
}

// Each of its calls fails alone: the attempt ends there, without an open key, and nothing is told to the shell.
class DeregisterApplicationFailure : public RegistryTest, public testing::WithParamInterface<std::string>
{
};

TEST_P(DeregisterApplicationFailure, is_tried_ten_times_from_the_start)
{
    const Calls attempt{c_deleteAppPaths,     c_createApplications, c_deleteApplication,
                        c_deleteCapabilities, c_deleteProtocol,     c_deleteScheme};
    const auto failing = static_cast<std::size_t>(std::ranges::find(attempt, GetParam()) - attempt.begin());
    registry.FailCall(GetParam(), ERROR_ACCESS_DENIED);

    EXPECT_EQ(DeregisterApplication(false), c_accessDenied);

    Calls expected;
    for (int i = 0; i < 10; ++i)
    {
        expected.insert(expected.end(), attempt.begin(), attempt.begin() + static_cast<std::ptrdiff_t>(failing) + 1);
    }
    EXPECT_EQ(registry.Calls(), expected);
    EXPECT_EQ(clock.Sleeps(), Pauses(10, 1000));
    EXPECT_TRUE(notified.empty());
    EXPECT_TRUE(failures.Contains("Registry", c_accessDenied));
}

INSTANTIATE_TEST_SUITE_P(RegistryTest, DeregisterApplicationFailure,
                         testing::Values(c_deleteAppPaths, c_createApplications, c_deleteApplication,
                                         c_deleteCapabilities, c_deleteProtocol, c_deleteScheme));

TEST_F(RegistryTest, RemoveUninstallEntry_deletes_the_entry_and_leaves_its_neighbours)
{
    AddEntry(L"C:\\Velmora", L"1");
    registry.AddKey(std::wstring(c_uninstall) + L"\\Sub");
    registry.AddKey(std::wstring(c_uninstall) + L"2");

    EXPECT_EQ(RemoveUninstallEntry(), S_OK);

    EXPECT_EQ(registry.Calls(), Calls{c_deleteUninstall});
    EXPECT_FALSE(registry.HasKey(c_uninstall));
    EXPECT_TRUE(registry.HasKey(std::wstring(c_uninstall) + L"2"));
    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST_F(RegistryTest, RemoveUninstallEntry_takes_a_missing_entry_for_done)
{
    EXPECT_EQ(RemoveUninstallEntry(), S_OK);

    EXPECT_EQ(clock.Sleeps(), Pauses{});
    EXPECT_TRUE(failures.Entries().empty());
}

TEST_F(RegistryTest, RemoveUninstallEntry_gives_up_after_ten_attempts_and_as_many_pauses)
{
    registry.FailCall(c_deleteUninstall, ERROR_ACCESS_DENIED);

    EXPECT_EQ(RemoveUninstallEntry(), c_accessDenied);

    EXPECT_EQ(registry.Calls(), Calls(10, c_deleteUninstall));
    EXPECT_EQ(clock.Sleeps(), Pauses(10, 1000));
    EXPECT_TRUE(failures.Contains("Registry", c_accessDenied));
}

TEST_F(RegistryTest, RemoveUninstallEntry_succeeds_at_a_later_attempt)
{
    AddEntry(L"C:\\Velmora", L"1");
    registry.FailCall(c_deleteUninstall, ERROR_ACCESS_DENIED, 9);

    EXPECT_EQ(RemoveUninstallEntry(), S_OK);

    EXPECT_EQ(clock.Sleeps(), Pauses(9, 1000));
    EXPECT_FALSE(registry.HasKey(c_uninstall));
}

} // namespace
