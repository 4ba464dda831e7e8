// An uninstall entry that names a folder which others live in: nothing of that folder is deleted, however it is named.
#include "EndToEndTest.h"
#include "support/common/DirectoryLink.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/SecondDrive.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cwctype>
#include <string>
#include <vector>

namespace Testing
{
namespace
{
constexpr std::wstring_view c_entryKey = LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)";

// The location as the program takes it: the folder of the running version is one of the product's folder.
std::wstring Taken(std::wstring location)
{
    location.erase(location.find_last_not_of(L'\\') + 1);
    return (location.ends_with(L"\\current") ? location.substr(0, location.rfind(L'\\')) : location) + L"\\";
}

std::string Text(const std::vector<std::string>& lines)
{
    std::string text;
    for (const std::string& line : lines)
    {
        text += line + "\r\n";
    }
    return text;
}

class ProtectedLocationTest : public EndToEndTest
{
protected:
    // A further drive that belongs to the state.
    void Watch(const SecondDrive& drive)
    {
        m_drives = drive.Letter();
        WatchDrive(drive.Letter());
    }

    // A run for each location, all of them refused: the rest of the product goes with the first one. A spelling that
    // not every Windows understands may be one that is not there for it.
    void ExpectRefused(const std::vector<std::wstring>& locations, bool mayBeMissing = false)
    {
        Begin(locations.front());
        for (const std::wstring& location : locations)
        {
            SCOPED_TRACE(ToUtf8(location));
            const RunResult result = RunWith(location);
            if (mayBeMissing && result.exitCode == c_fullSuccess)
            {
                EXPECT_EQ(result.log.find("Deleting installation folder..."), std::string::npos);
                continue;
            }
            EXPECT_EQ(result.exitCode, c_partialUninstall);
            EXPECT_EQ(ReplaceAll(result.log, "(" + std::to_string(result.processId) + ")", "(<pid>)"),
                      Text(ExpectedLog().RefusesFolder(Taken(location)).FindsNoPackage().Lines()));
        }
        ExpectNothingLost();
    }

    // The last folder of a path with its short name, in its full path.
    static std::wstring WithShortName(const std::wstring& path)
    {
        std::array<wchar_t, MAX_PATH> name{};
        GetShortPathNameW(path.c_str(), name.data(), static_cast<DWORD>(name.size()));
        return name.data();
    }

private:
    // Uninstalls the product first, with all the comparisons that belong to it.
    void Begin(const std::wstring& location)
    {
        LayDownSample();
        SetLocation(location);
        Run();
        m_state = After();
        MachineState expected = DeclaredState();
        expected.CopyTree(InstallFolder(), Before());
        CopyTraces(expected, After());
        ExpectState(expected);
    }

    static void SetLocation(const std::wstring& location)
    {
        WriteValue(c_entryKey, L"InstallLocation", REG_SZ, TextValue(REG_SZ, location).data);
        WriteValue(c_entryKey, L"DisplayVersion", REG_SZ, TextValue(REG_SZ, L"2.8.1.2171").data);
    }

    RunResult RunWith(const std::wstring& location)
    {
        SetLocation(location);
        return RunProgram(ProgramPath(), L"-s");
    }

    // The runs left nothing but their logs behind, and took nothing away.
    void ExpectNothingLost()
    {
        const MachineState state = MachineState::Capture(m_drives);
        CopyTraces(m_state, state);
        EXPECT_EQ(Compare(m_state, state), std::vector<std::string>{});
    }

    std::wstring m_drives;
    MachineState m_state;
};

TEST_F(ProtectedLocationTest, Folders_that_others_live_in_are_refused)
{
    const SecondDrive drive;
    Watch(drive);
    WriteTestFile(drive.Root() + L"somebody's.txt", 10);
    const std::wstring profile = Expand(L"<Downloads>").substr(0, Expand(L"<Downloads>").rfind(L'\\'));
    const std::wstring users = profile.substr(0, profile.rfind(L'\\'));
    const std::wstring other = users + L"\\Somebody else";
    WriteTestFile(other + L"\\letter.txt", 10);
    const std::wstring localAppData = Expand(L"<LocalAppData>");
    const std::wstring hidden = LR"(C:\windows\.hidden)";
    ASSERT_TRUE(CreateDirectoryW(hidden.c_str(), nullptr));
    ExpectRefused({L"C:\\", drive.Root(), LR"(C:\windows)", LR"(C:\windows\system32)",
                   LR"(C:\windows\system32\drivers)", hidden, Expand(L"<ProgramFiles>"),
                   Expand(L"<ProgramFiles> (x86)"), Expand(LR"(<ProgramFiles>\Common Files)"), Expand(L"<ProgramData>"),
                   Expand(LR"(<ProgramFiles>\current\)"), users, profile, other, users + L"\\Public", localAppData,
                   localAppData.substr(0, localAppData.rfind(L'\\'))});
    RemoveTree(hidden);
    RemoveTree(other);
    RemoveTree(drive.Root() + L"somebody's.txt");
}

TEST_F(ProtectedLocationTest, However_it_is_written_it_is_the_same_folder)
{
    const std::wstring folder = Expand(L"<ProgramFiles>");
    std::wstring upper = folder;
    std::ranges::transform(upper, upper.begin(), [](wchar_t character) { return std::towupper(character); });
    std::wstring slashes = folder;
    std::ranges::replace(slashes, L'\\', L'/');
    const std::wstring link = Expand(L"<Downloads>\\link");
    ASSERT_TRUE(CreateDirectoryLink(link, folder));
    ExpectRefused({folder + LR"(\\\)", upper, slashes + L"/", LR"(\\?\)" + folder, LR"(\\.\)" + folder,
                   folder + LR"(\Velmora\..)", folder + LR"(\.)", LR"(C:\windows\..)" + folder.substr(2),
                   LR"(C:\..\.)" + folder.substr(2), WithShortName(folder), link, link + LR"(\\)",
                   // Every program starts in System32.
                   LR"(..\..)" + folder.substr(2), L"..", L"c:/", LR"(\\?\C:)"});
    RemoveDirectoryLink(link);
}

TEST_F(ProtectedLocationTest, A_spelling_that_not_every_Windows_understands_loses_nothing_either)
{
    const std::wstring folder = Expand(L"<ProgramFiles>");
    ExpectRefused({folder + L". ", folder.substr(2), LR"(\\?\C:\windows\..)" + folder.substr(2), LR"(\\?\C:/windows)",
                   LR"(\\localhost\C$)" + folder.substr(2), LR"(\\?\GLOBALROOT\??\)" + folder, LR"(\??\)" + folder,
                   folder + L"::$INDEX_ALLOCATION", L"/", L"*"},
                  true);
}
} // namespace
} // namespace Testing
