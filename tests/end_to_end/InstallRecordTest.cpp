// The uninstall entry names the installation folder: what is made of good and bad ones.
#include "EndToEndTest.h"
#include "SecondDrive.h"
#include "support/Names.h"

#include <cstring>
#include <functional>
#include <optional>
#include <ostream>

namespace Testing
{
namespace
{
constexpr std::wstring_view c_entryKey = LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)";

void SetLocation(const std::wstring& location, DWORD type = REG_SZ)
{
    WriteValue(c_entryKey, L"InstallLocation", type, TextValue(type, location).data);
}

void SetVersion(const std::wstring& version)
{
    WriteValue(c_entryKey, L"DisplayVersion", REG_SZ, TextValue(REG_SZ, version).data);
}

void SetNumber(const wchar_t* name)
{
    WriteValue(c_entryKey, name, REG_DWORD, std::vector<std::byte>(sizeof(DWORD), std::byte{7}));
}

// A record that cannot be used: the default folder is taken.
struct UnusableRecord
{
    std::string name;
    std::function<void()> make;
};

void PrintTo(const UnusableRecord& record, std::ostream* stream)
{
    *stream << record.name;
}

class UnusableRecordTest : public EndToEndTest, public ::testing::WithParamInterface<UnusableRecord>
{
};

TEST_P(UnusableRecordTest, The_default_folder_is_removed)
{
    LayDownSample();
    GetParam().make();
    Run();
    ExpectFullSuccess(ExpectedLog().FindsNoRecord());
}

const std::vector<UnusableRecord>& UnusableRecords()
{
    static const std::vector<UnusableRecord> records{
        {"Empty_location", [] { SetLocation(L""); }},
        {"Location_of_backslashes", [] { SetLocation(LR"(\\\)"); }},
        {"Location_of_one_word", [] { SetLocation(L"current"); }},
        {"Location_missing", [] { RemoveValue(c_entryKey, L"InstallLocation"); }},
        {"Location_a_number", [] { SetNumber(L"InstallLocation"); }},
        {"Location_a_list", [] { SetLocation(InstallFolder(), REG_MULTI_SZ); }},
        {"Version_missing", [] { RemoveValue(c_entryKey, L"DisplayVersion"); }},
        {"Version_a_number", [] { SetNumber(L"DisplayVersion"); }},
        {"Version_without_a_number", [] { SetVersion(L"x.1"); }},
        {"Version_too_large", [] { SetVersion(L"1.99999999999.3"); }},
    };
    return records;
}

INSTANTIATE_TEST_SUITE_P(Record, UnusableRecordTest, ::testing::ValuesIn(UnusableRecords()),
                         [](const ::testing::TestParamInfo<UnusableRecord>& record) { return record.param.name; });

// A version that is unusual but can be read, and how the log shows it.
struct OddVersion
{
    std::string name;
    std::wstring text;
    std::string shown;
};

void PrintTo(const OddVersion& version, std::ostream* stream)
{
    *stream << version.name;
}

class OddVersionTest : public EndToEndTest, public ::testing::WithParamInterface<OddVersion>
{
};

TEST_P(OddVersionTest, The_record_is_used)
{
    LayDownSample();
    SetVersion(GetParam().text);
    Run();
    ExpectFullSuccess(ExpectedLog().FindsRecord(InstallFolder() + L"\\", GetParam().shown));
}

const std::vector<OddVersion>& OddVersions()
{
    static const std::vector<OddVersion> versions{{"One_number", L"3", "3.0.0.0"},
                                                  {"Empty_field", L"1..5", "1.0.5.0"},
                                                  {"Five_numbers", L"1.2.3.4.5", "1.2.3.4"},
                                                  {"Too_large_for_a_field", L"70000", "4464.0.0.0"},
                                                  {"Text_behind_the_number", L"2.8-beta.1", "2.8.1.0"},
                                                  {"Empty", L"", "0.0.0.0"}};
    return versions;
}

INSTANTIATE_TEST_SUITE_P(Version, OddVersionTest, ::testing::ValuesIn(OddVersions()),
                         [](const ::testing::TestParamInfo<OddVersion>& version) { return version.param.name; });

class InstallRecordTest : public EndToEndTest
{
};

std::vector<std::byte> BytesOf(const std::wstring& text)
{
    std::vector<std::byte> bytes(text.size() * sizeof(wchar_t));
    std::memcpy(bytes.data(), text.data(), bytes.size());
    return bytes;
}

// One of the two values that are read, with a type and bytes that no installer would write.
struct OddValue
{
    std::string name;
    const wchar_t* value;
    DWORD type;
    std::vector<std::byte> data;
    // What the log shows of the version; nothing when the record is not used.
    std::optional<std::string> version{};
    // Not every Windows reads half a character.
    bool hasHalfCharacter = false;
};

const std::vector<OddValue>& OddValues()
{
    constexpr const wchar_t* c_location = L"InstallLocation";
    constexpr const wchar_t* c_version = L"DisplayVersion";
    constexpr const char* c_usual = "2.8.1.2171";
    constexpr std::byte c_digit{0x32};
    const std::wstring location = InstallFolder();
    const std::wstring zeros(3, L'\0');
    std::vector<std::byte> oddLocation = BytesOf(location);
    oddLocation.push_back(c_digit);
    static const std::vector<OddValue> values{
        {"binary location", c_location, REG_BINARY, BytesOf(location + L'\0')},
        {"location of no bytes", c_location, REG_SZ, {}},
        {"location of one byte", c_location, REG_SZ, {c_digit}, {}, true},
        {"location of an odd number of bytes", c_location, REG_SZ, oddLocation, c_usual, true},
        {"location with zeros in it", c_location, REG_SZ, BytesOf(location + zeros + L"C:\\" + zeros), c_usual},
        {"long location of nothing", c_location, REG_SZ, BytesOf(std::wstring(600'000, L'\\') + L'\0')},
        {"version as a list", c_version, REG_MULTI_SZ, BytesOf(L"2.8.1.2171" + zeros)},
        {"version of no bytes", c_version, REG_SZ, {}, "0.0.0.0"},
        {"version of an odd number of bytes", c_version, REG_SZ, {c_digit, std::byte{0}, c_digit}, "2.0.0.0", true},
        {"version with zeros in it", c_version, REG_SZ, BytesOf(L"2.8" + zeros + L".1"), "2.8.0.0"},
        {"long version", c_version, REG_EXPAND_SZ, BytesOf(std::wstring(100'000, L'7') + L'\0')},
    };
    return values;
}

TEST_F(InstallRecordTest, Values_of_any_type_and_size_are_read_or_not_and_do_no_harm)
{
    for (const OddValue& value : OddValues())
    {
        SCOPED_TRACE(value.name);
        WriteTestFile(InstallFolder() + LR"(\current\Velmora.exe)", 100);
        SetLocation(InstallFolder());
        SetVersion(L"2.8.1.2171");
        WriteValue(c_entryKey, value.value, value.type, value.data);
        Run();
        ExpectedLog log;
        if (!value.version || (value.hasHalfCharacter && Result().log.find("Did not find") != std::string::npos))
        {
            log.FindsNoRecord();
        }
        else
        {
            log.FindsRecord(InstallFolder() + L"\\", *value.version);
        }
        // The folder is the default one, too.
        ExpectFullSuccess(log.FindsNoPackage());
    }
}

TEST_F(InstallRecordTest, A_location_that_ends_in_current_stands_for_the_folder_above)
{
    LayDownSample();
    SetLocation(InstallFolder() + LR"(\current\)");
    Run();
    ExpectFullSuccess();
}

TEST_F(InstallRecordTest, Backslashes_at_the_end_do_not_matter)
{
    LayDownSample();
    SetLocation(InstallFolder() + LR"(\\\)");
    Run();
    ExpectFullSuccess();
}

TEST_F(InstallRecordTest, A_location_without_a_zero_at_its_end_is_read_to_its_end)
{
    LayDownSample();
    StateEntry value = TextValue(REG_SZ, InstallFolder());
    value.data.resize(value.data.size() - sizeof(wchar_t));
    WriteValue(c_entryKey, L"InstallLocation", REG_SZ, value.data);
    Run();
    ExpectFullSuccess();
}

TEST_F(InstallRecordTest, References_in_a_location_are_not_expanded)
{
    LayDownSample();
    SetLocation(LR"(%ProgramFiles%\Velmora)", REG_EXPAND_SZ);
    Run();
    MachineState state = DeclaredState();
    state.CopyTree(InstallFolder(), Before());
    ExpectFullSuccess(ExpectedLog().FindsRecord(LR"(%ProgramFiles%\Velmora\)").LeavesOut(Step::InstallFolder), state);
}

TEST_F(InstallRecordTest, An_over_long_location_is_not_found_and_nothing_else_is_taken_for_it)
{
    LayDownSample({Group::InstallFolder});
    const std::wstring location = LR"(C:\)" + std::wstring(40'000, L'x');
    SetLocation(location);
    Run();
    ExpectFullSuccess(ExpectedLog().FindsRecord(location + L"\\").LeavesOut(Step::InstallFolder));
}

TEST_F(InstallRecordTest, A_location_on_another_drive_is_removed_and_the_default_folder_is_not)
{
    const SecondDrive drive;
    WatchDrive(drive.Letter());
    const std::wstring folder = drive.Root() + LR"(Programs\Vel Mora)";
    LayDownSample();
    WriteTestFile(folder + LR"(\current\Velmora.exe)", 1'000);
    WriteTestFile(folder + LR"(\current\locales\text.pak)", 100);
    WriteTestFile(drive.Root() + LR"(Programs\Vel Mora 2\Velmora.exe)", 100);
    SetLocation(folder);
    Run();
    MachineState state = DeclaredState();
    state.Erase(folder);
    state.CopyTree(InstallFolder(), Before());
    ASSERT_NE(Before().Find(folder), nullptr);
    ExpectFullSuccess(ExpectedLog().FindsRecord(folder + L"\\"), state);
    RemoveTree(drive.Root() + L"Programs");
}
} // namespace
} // namespace Testing
