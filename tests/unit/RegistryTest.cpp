#include "Installer/Registry.h"

#include "support/unit/FailureLog.h"
#include "support/unit/FakeRegistry.h"
#include "support/unit/VirtualClock.h"

#include <windows.h>

#include <shlobj.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Version = std::array<std::uint16_t, 4>;

constexpr wchar_t c_uninstall[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Velmora";
constexpr wchar_t c_run[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run";
constexpr wchar_t c_approved[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\StartupApproved\\Run";
constexpr wchar_t c_appPaths[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Velmora.exe";
constexpr wchar_t c_applications[] = L"SOFTWARE\\RegisteredApplications";
constexpr wchar_t c_settings[] = L"SOFTWARE\\Velmora";
constexpr wchar_t c_capabilities[] = L"SOFTWARE\\Velmora\\Capabilities";
constexpr wchar_t c_protocol[] = L"SOFTWARE\\Classes\\Velmora.Protocol";
constexpr wchar_t c_scheme[] = L"SOFTWARE\\Classes\\velmora";

// Calls, as the journal has them.
std::string About(const char* function, const wchar_t* key, const std::string& rest = {})
{
    return function + "(\""s + Narrow(key) + '"' + rest + ')';
}

std::string Create(const wchar_t* key)
{
    return About("RegCreateKeyExW", key, ", 0xf003f");
}

std::string DeleteValue(const wchar_t* key)
{
    return About("RegDeleteValueW", key, ", \"Velmora\"");
}

std::string DeleteTree(const wchar_t* key)
{
    return About("RegDeleteTreeW", key);
}

const std::string c_open = About("RegOpenKeyExW", c_uninstall, ", 0xf003f");
constexpr char c_tellShell[] = "SHChangeNotify(0x8000000, 0, null, null)";

class RegistryTest : public testing::Test
{
protected:
    void AddEntry(std::wstring_view location, std::wstring_view version)
    {
        registry.SetString(c_uninstall, L"InstallLocation", location);
        registry.SetString(c_uninstall, L"DisplayVersion", version);
    }

    // Reads the entry; nothing when it is not found, with the rest of the record empty.
    static std::optional<InstallRecord> Read()
    {
        const InstallRecord record = ReadInstallRecord();
        if (record.found)
        {
            EXPECT_NE(record.location, L"");
            return record;
        }
        EXPECT_EQ(record.location, L"");
        EXPECT_EQ(record.version, Version{});
        return std::nullopt;
    }

    // All calls but the closing of keys.
    Calls Made() const
    {
        Calls calls = journal.All();
        std::erase_if(calls, [](const std::string& call) { return call.starts_with("RegCloseKey"); });
        return calls;
    }

    Journal journal;
    Handles handles{journal};
    VirtualClock clock{&journal};
    FakeRegistry registry{journal, handles};
    FailureLog failures;
    Fake<&SHChangeNotify> notify = [this](LONG event, UINT flags, LPCVOID first, LPCVOID second) {
        journal.Add("SHChangeNotify", Mask(static_cast<DWORD>(event)), flags, first, second);
    };
};

TEST_F(RegistryTest, ReadInstallRecord_reads_the_entry_with_full_access_and_nothing_expanded)
{
    AddEntry(L"C:\\Program Files\\Velmora\\", L"2.8.1.2171");

    const auto record = Read();

    ASSERT_TRUE(record);
    EXPECT_EQ(record->location, L"C:\\Program Files\\Velmora\\");
    EXPECT_EQ(record->version, (Version{2, 8, 1, 2171}));
    Calls calls = Made();
    calls.erase(std::ranges::unique(calls).begin(), calls.end()); // a value may be read in two steps
    EXPECT_THAT(calls, ElementsAre(c_open, About("RegGetValueW", c_uninstall, ", \"InstallLocation\", 0x10000006"),
                                   About("RegGetValueW", c_uninstall, ", \"DisplayVersion\", 0x10000006")));
}

TEST_F(RegistryTest, ReadInstallRecord_finds_nothing_and_records_no_failure_where_the_entry_is_missing_or_denies_access)
{
    EXPECT_FALSE(Read());
    AddEntry(L"C:\\Velmora", L"1");
    journal.Fail(c_open);
    EXPECT_FALSE(Read());

    EXPECT_THAT(Made(), ElementsAre(c_open, c_open));
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(RegistryTest, ReadInstallRecord_needs_both_values)
{
    registry.SetString(c_uninstall, L"DisplayVersion", L"1");
    EXPECT_FALSE(Read());

    FakeRegistry other(journal, handles);
    other.SetString(c_uninstall, L"InstallLocation", L"C:\\Velmora");
    EXPECT_FALSE(Read());
}

TEST_F(RegistryTest, ReadInstallRecord_refuses_values_that_are_no_text)
{
    for (const wchar_t* const name : {L"InstallLocation", L"DisplayVersion"})
    {
        for (const DWORD type : {DWORD{REG_DWORD}, DWORD{REG_BINARY}, DWORD{REG_MULTI_SZ}})
        {
            AddEntry(L"C:\\Velmora", L"1");
            registry.SetValue(c_uninstall, name, type, {'1', 0, 0, 0});
            EXPECT_FALSE(Read());
        }
    }
}

TEST_F(RegistryTest, ReadInstallRecord_takes_values_as_they_are_stored)
{
    AddEntry(L"", L"1");
    registry.SetString(c_uninstall, L"InstallLocation", L"%ProgramFiles%\\Velmora", REG_EXPAND_SZ);
    EXPECT_EQ(ReadInstallRecord().location, L"%ProgramFiles%\\Velmora\\");

    registry.SetValue(c_uninstall, L"InstallLocation", REG_SZ, {'D', 0, ':', 0, '\\', 0, 'V', 0}); // no final zero
    EXPECT_EQ(ReadInstallRecord().location, L"D:\\V\\");

    registry.SetValue(c_uninstall, L"InstallLocation", REG_SZ, {});
    EXPECT_FALSE(Read());
}

TEST_F(RegistryTest, ReadInstallRecord_normalizes_the_location)
{
    const std::wstring longest = L"C:\\" + std::wstring(20'000, L'x') + L"\\";
    const std::pair<std::wstring, std::wstring> locations[] = {
        // One backslash at the end.
        {L"C:\\Program Files\\Velmora", L"C:\\Program Files\\Velmora\\"},
        {L"C:\\Program Files\\Velmora\\", L"C:\\Program Files\\Velmora\\"},
        {L"C:\\Program Files\\Velmora\\\\\\", L"C:\\Program Files\\Velmora\\"},
        {longest, longest},
        // Without the folder of the running version.
        {L"C:\\Program Files\\Velmora\\current\\", L"C:\\Program Files\\Velmora\\"},
        {L"C:\\Program Files\\Velmora\\current", L"C:\\Program Files\\Velmora\\"},
        {L"D:\\Appcurrent", L"D:\\App\\"},
        {L"C:\\Velmora\\\\current", L"C:\\Velmora\\\\"},
        {L"C:\\Velmora\\Current", L"C:\\Velmora\\Current\\"},
        {L"C:\\current\\current", L"C:\\current\\"},
        {L"C:\\currents", L"C:\\currents\\"},
    };
    for (const auto& [stored, read] : locations)
    {
        AddEntry(stored, L"1");
        EXPECT_EQ(ReadInstallRecord().location, read);
    }
}

TEST_F(RegistryTest, ReadInstallRecord_refuses_a_location_of_which_nothing_is_left)
{
    for (const wchar_t* const location : {L"", L"\\\\\\", L"current", L"current\\"})
    {
        AddEntry(location, L"1");
        EXPECT_FALSE(Read()) << Narrow(location);
    }
}

TEST_F(RegistryTest, ReadInstallRecord_reads_the_version)
{
    struct Case
    {
        const wchar_t* text;
        std::optional<Version> version; // nothing resets the whole record
    };
    const Case cases[] = {
        // Up to four numbers.
        {L"2.8.1.2171", {{2, 8, 1, 2171}}},
        {L"3", {{3, 0, 0, 0}}},
        {L"3.", {{3, 0, 0, 0}}},
        {L"", {{0, 0, 0, 0}}},
        {L"...", {{0, 0, 0, 0}}},
        {L"1..5", {{1, 0, 5, 0}}},
        {L".7", {{0, 7, 0, 0}}},
        {L"1.2.3.4.5", {{1, 2, 3, 4}}},
        {L"1.2.3.4.x", {{1, 2, 3, 4}}},
        {L"1.2.3.4.", {{1, 2, 3, 4}}},
        // As the standard conversion reads numbers.
        {L" 7", {{7, 0, 0, 0}}},
        {L"\t+7.-1", {{7, 65535, 0, 0}}},
        {L"12beta.3 rc", {{12, 3, 0, 0}}},
        {L"0x10.010", {{0, 10, 0, 0}}},
        {L"1\u20ac", {{1, 0, 0, 0}}},
        // Their low 16 bits.
        {L"70000", {{4464, 0, 0, 0}}},
        {L"65535.65536", {{65535, 0, 0, 0}}},
        {L"2147483647.-2147483648", {{65535, 0, 0, 0}}},
        // Invalid Unicode counts as an empty text.
        {L"1.\xd800", {{0, 0, 0, 0}}},
        // No number, or one that is out of range.
        {L"x.1", {}},
        {L"1.2.3.x", {}},
        {L"1. ", {}},
        {L"\u0661.2", {}}, // an Arabic digit
        {L"-", {}},
        {L"2147483648", {}},
        {L"1.99999999999999999999", {}},
    };
    for (const Case& each : cases)
    {
        SCOPED_TRACE(Narrow(each.text));
        AddEntry(L"C:\\Velmora", each.text);
        const auto record = Read();
        EXPECT_EQ(record ? std::optional(record->version) : std::nullopt, each.version);
    }
}

TEST_F(RegistryTest, OpenMachineKey_creates_a_missing_key_and_gives_full_access)
{
    wil::unique_hkey key;
    EXPECT_EQ(OpenMachineKey(L"SOFTWARE\\New", key), S_OK);

    EXPECT_TRUE(key);
    EXPECT_TRUE(registry.HasKey(L"SOFTWARE\\New"));
    EXPECT_THAT(Made(), ElementsAre(Create(L"SOFTWARE\\New")));
}

TEST_F(RegistryTest, OpenMachineKey_returns_and_records_a_failure)
{
    journal.Fail("RegCreateKeyExW");

    wil::unique_hkey key;
    EXPECT_EQ(OpenMachineKey(L"SOFTWARE\\New", key), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));

    EXPECT_FALSE(key);
    EXPECT_TRUE(failures.Contains("Registry", HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)));
}

struct Removal
{
    const char* name;
    HRESULT (*remove)();
    Calls attempt; // each of its calls may fail
    std::vector<std::wstring> gone;
    bool tellsShell = false;
};

void PrintTo(const Removal& removal, std::ostream* stream)
{
    *stream << removal.name;
}

class RegistryRemovalTest : public RegistryTest, public testing::WithParamInterface<Removal>
{
protected:
    static Calls Succeeding() { return GetParam().attempt + (GetParam().tellsShell ? Calls{c_tellShell} : Calls{}); }
};

INSTANTIATE_TEST_SUITE_P(
    RegistryTest, RegistryRemovalTest,
    testing::Values(Removal{"RemoveStartupEntry",
                            [] { return RemoveStartupEntry(); },
                            {Create(c_run), Create(c_approved), DeleteValue(c_run), DeleteValue(c_approved)},
                            {c_run + L": Velmora"s, c_approved + L": Velmora"s}},
                    Removal{"DeregisterApplication_that_keeps_the_settings",
                            [] { return DeregisterApplication(false); },
                            {DeleteTree(c_appPaths), Create(c_applications), DeleteValue(c_applications),
                             DeleteTree(c_capabilities), DeleteTree(c_protocol), DeleteTree(c_scheme)},
                            {c_appPaths, c_protocol, c_scheme, c_applications + L": Velmora"s, c_capabilities,
                             c_capabilities + L"\\UrlAssociations"s},
                            true},
                    Removal{"DeregisterApplication_that_removes_the_settings",
                            [] { return DeregisterApplication(true); },
                            {DeleteTree(c_appPaths), Create(c_applications), DeleteValue(c_applications),
                             DeleteTree(c_settings), DeleteTree(c_protocol), DeleteTree(c_scheme)},
                            {c_appPaths, c_protocol, c_scheme, c_applications + L": Velmora"s, c_settings,
                             c_settings + L": x"s, c_capabilities, c_capabilities + L"\\UrlAssociations"s,
                             c_capabilities + L"2"s},
                            true},
                    Removal{"RemoveUninstallEntry",
                            [] { return RemoveUninstallEntry(); },
                            {DeleteTree(c_uninstall)},
                            {c_uninstall, c_uninstall + L": DisplayVersion"s, c_uninstall + L": InstallLocation"s,
                             c_uninstall + L"\\Sub"s}}),
    [](const auto& removal) { return std::string(removal.param.name); });

TEST_P(RegistryRemovalTest, Deletes_its_entries_and_leaves_their_neighbours)
{
    for (const wchar_t* const key : {c_run, c_approved, c_applications})
    {
        registry.SetString(key, L"Velmora", L"x");
        registry.SetString(key, L"Velmora2", L"x");
    }
    for (const wchar_t* const key : {c_appPaths, c_capabilities, c_protocol, c_scheme, c_uninstall})
    {
        registry.AddKey(key);
        registry.AddKey(key + L"2"s);
    }
    registry.AddKey(c_capabilities + L"\\UrlAssociations"s);
    registry.SetString(c_settings, L"x", L"x");
    registry.AddKey(c_uninstall + L"\\Sub"s);
    AddEntry(L"C:\\Velmora", L"1");
    std::vector<std::wstring> gone = registry.Contents();

    EXPECT_EQ(GetParam().remove(), S_OK);

    std::erase_if(gone, [left = registry.Contents()](const std::wstring& entry) {
        return std::ranges::find(left, entry) != left.end();
    });
    EXPECT_THAT(gone, testing::UnorderedElementsAreArray(GetParam().gone));
    EXPECT_EQ(Made(), Succeeding());
}

TEST_P(RegistryRemovalTest, Takes_what_is_missing_for_done)
{
    EXPECT_EQ(GetParam().remove(), S_OK);

    EXPECT_EQ(Made(), Succeeding());
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_P(RegistryRemovalTest, Is_tried_ten_times_from_the_start_whatever_fails)
{
    for (std::size_t failing = 0; failing < GetParam().attempt.size(); ++failing)
    {
        const Calls attempt{GetParam().attempt.begin(),
                            GetParam().attempt.begin() + static_cast<std::ptrdiff_t>(failing) + 1};
        SCOPED_TRACE(attempt.back());

        journal.Fail(attempt.back(), ERROR_KEY_DELETED);
        EXPECT_EQ(GetParam().remove(), HRESULT_FROM_WIN32(ERROR_KEY_DELETED));
        EXPECT_EQ(Made(), 10 * (attempt + "Sleep(1000)"));
        EXPECT_TRUE(failures.Contains("Registry", HRESULT_FROM_WIN32(ERROR_KEY_DELETED)));

        journal.Take();
        journal.Fail(attempt.back(), ERROR_ACCESS_DENIED, 9);
        EXPECT_EQ(GetParam().remove(), S_OK);
        EXPECT_EQ(Made(), 9 * (attempt + "Sleep(1000)") + Succeeding());
        journal.Take();
    }
}

} // namespace
