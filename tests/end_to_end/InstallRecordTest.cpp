// The uninstall entry names the installation folder: what is made of what Windows' registry can hold there. How its
// texts are read, the unit tests show.
#include "EndToEndTest.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/SecondDrive.h"

#include <cstring>
#include <optional>

namespace Testing
{
namespace
{
constexpr std::wstring_view c_entryKey = LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)";
constexpr const wchar_t* c_location = L"InstallLocation";
constexpr const wchar_t* c_version = L"DisplayVersion";

void SetLocation(const std::wstring& location, DWORD type = REG_SZ)
{
    WriteValue(c_entryKey, c_location, type, TextValue(type, location).data);
}

std::vector<std::byte> BytesOf(const std::wstring& text)
{
    std::vector<std::byte> bytes(text.size() * sizeof(wchar_t));
    std::memcpy(bytes.data(), text.data(), bytes.size());
    return bytes;
}

class InstallRecordTest : public EndToEndTest
{
};

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

TEST_F(InstallRecordTest, Values_of_any_type_and_size_are_read_or_not_and_do_no_harm)
{
    constexpr const char* c_usual = "2.8.1.2171";
    constexpr std::byte c_digit{0x32};
    const std::wstring location = InstallFolder();
    const std::wstring zeros(3, L'\0');
    std::vector<std::byte> oddLocation = BytesOf(location);
    oddLocation.push_back(c_digit);
    const std::vector<OddValue> values{
        {"location bytes", c_location, REG_BINARY, BytesOf(location + L'\0')},
        {"location of no bytes", c_location, REG_SZ, {}},
        {"location of an odd number of bytes", c_location, REG_SZ, oddLocation, c_usual, true},
        {"location without a zero at its end", c_location, REG_SZ, BytesOf(location), c_usual},
        {"location with zeros in it", c_location, REG_SZ, BytesOf(location + zeros + L"C:\\" + zeros), c_usual},
        {"long location of nothing", c_location, REG_SZ, BytesOf(std::wstring(600'000, L'\\') + L'\0')},
        {"version as a list", c_version, REG_MULTI_SZ, BytesOf(L"2.8.1.2171" + zeros)},
        {"version of no bytes", c_version, REG_SZ, {}, "0.0.0.0"},
        {"version of an odd number of bytes", c_version, REG_SZ, {c_digit, std::byte{0}, c_digit}, "2.0.0.0", true},
        {"version with zeros in it", c_version, REG_SZ, BytesOf(L"2.8" + zeros + L".1"), "2.8.0.0"},
        {"long version", c_version, REG_EXPAND_SZ, BytesOf(std::wstring(100'000, L'7') + L'\0')},
    };
    for (const OddValue& value : values)
    {
        SCOPED_TRACE(value.name);
        WriteTestFile(InstallFolder() + LR"(\current\Velmora.exe)", 100);
        SetLocation(InstallFolder());
        WriteValue(c_entryKey, c_version, REG_SZ, BytesOf(L"2.8.1.2171"));
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

TEST_F(InstallRecordTest, References_in_a_location_are_not_expanded)
{
    LayDownSample();
    SetLocation(LR"(%ProgramFiles%\Velmora)", REG_EXPAND_SZ);
    Run();
    ExpectFullSuccess(ExpectedLog().FindsRecord(LR"(%ProgramFiles%\Velmora\)").LeavesOut(Step::InstallFolder),
                      DeclaredStateWith({InstallFolder()}));
}

TEST_F(InstallRecordTest, An_over_long_location_is_not_found_and_nothing_else_is_taken_for_it)
{
    LayDownSample({Step::InstallFolder});
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
    WriteTestFile(drive.Root() + LR"(Programs\Vel Mora 2\Velmora.exe)", 100);
    SetLocation(folder);
    Run();
    MachineState state = DeclaredStateWith({InstallFolder()});
    state.Erase(folder);
    ASSERT_NE(Before().Find(folder), nullptr);
    ExpectFullSuccess(ExpectedLog().FindsRecord(folder + L"\\"), state);
    RemoveTree(drive.Root() + L"Programs");
}
} // namespace
} // namespace Testing
