// The folder that the uninstall entry names: it is removed wherever it is, unless others live in it.
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
class InstallationFolderTest : public EndToEndTest
{
protected:
    static void SetLocation(const std::wstring& location)
    {
        constexpr std::wstring_view c_key = LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)";
        WriteValue(c_key, L"InstallLocation", REG_SZ, TextValue(REG_SZ, location).data);
        WriteValue(c_key, L"DisplayVersion", REG_SZ, TextValue(REG_SZ, L"2.8.1.2171").data);
    }

    // A run for each location, all of them refused: the rest of the product goes with the first one.
    void ExpectRefused(const std::vector<std::wstring>& locations)
    {
        LayDownSample({Step::LegacyPackage});
        for (const std::wstring& location : locations)
        {
            SCOPED_TRACE(ToUtf8(location));
            SetLocation(location);
            Run();
            ExpectPartialUninstall(ExpectedLog().RefusesFolder(location + L"\\").FindsNoPackage(),
                                   DeclaredStateWith({InstallFolder()}));
            GoOn(); // all that is new then is the entry, which goes again
        }
    }

    static std::wstring WithShortName(const std::wstring& path)
    {
        std::array<wchar_t, MAX_PATH> name{};
        GetShortPathNameW(path.c_str(), name.data(), static_cast<DWORD>(name.size()));
        return name.data();
    }

    const std::wstring m_programs = Expand(L"<ProgramFiles>");
};

TEST_F(InstallationFolderTest, On_another_drive_is_removed_and_the_default_one_is_not)
{
    const SecondDrive drive;
    WatchDrive(drive.Letter());
    const std::wstring folder = drive.Root() + LR"(Programs\Émile 序曲)";
    LayDownSample();
    WriteTestFile(folder + LR"(\current\Velmora.exe)", 1'000);
    WriteTestFile(folder + LR"( 2\Velmora.exe)", 100);
    SetLocation(folder);
    Run();
    MachineState state = DeclaredStateWith({InstallFolder()});
    state.Erase(folder);
    ASSERT_NE(Before().Find(folder), nullptr);
    ExpectFullSuccess(ExpectedLog().FindsRecord(folder + L"\\"), state);
    RemoveTree(drive.Root() + L"Programs");
}

TEST_F(InstallationFolderTest, Whose_path_is_too_long_is_not_found_and_nothing_else_is_taken_for_it)
{
    LayDownSample();
    const std::wstring location = LR"(C:\)" + std::wstring(40'000, L'x');
    SetLocation(location);
    Run();
    ExpectFullSuccess(ExpectedLog().FindsRecord(location + L"\\").LeavesOut(Step::InstallFolder),
                      DeclaredStateWith({InstallFolder()}));
}

TEST_F(InstallationFolderTest, That_others_live_in_is_refused)
{
    const SecondDrive drive;
    WatchDrive(drive.Letter());
    WriteTestFile(drive.Root() + L"somebody's.txt", 10);
    const std::wstring profile = Expand(L"<Downloads>").substr(0, Expand(L"<Downloads>").rfind(L'\\'));
    const std::wstring users = profile.substr(0, profile.rfind(L'\\'));
    const std::wstring other = users + L"\\Somebody else";
    WriteTestFile(other + L"\\letter.txt", 10);
    ExpectRefused({L"C:", L"V:", LR"(C:\windows)", LR"(C:\windows\system32\drivers)", m_programs,
                   m_programs + L" (x86)", m_programs + LR"(\Common Files)", Expand(L"<ProgramData>"), users, profile,
                   other, users + L"\\Public", Expand(L"<LocalAppData>")});
    RemoveTree(other);
    RemoveTree(drive.Root() + L"somebody's.txt");
}

TEST_F(InstallationFolderTest, That_others_live_in_is_refused_however_it_is_written)
{
    std::wstring upper = m_programs;
    std::ranges::transform(upper, upper.begin(), [](wchar_t character) { return std::towupper(character); });
    std::wstring slashes = m_programs;
    std::ranges::replace(slashes, L'\\', L'/');
    const std::wstring link = Expand(L"<Downloads>\\link");
    ASSERT_TRUE(CreateDirectoryLink(link, m_programs));
    ExpectRefused({upper, slashes, LR"(\\?\)" + m_programs, LR"(\\.\)" + m_programs, m_programs + LR"(\Velmora\..)",
                   LR"(C:\..\.)" + m_programs.substr(2), WithShortName(m_programs), link,
                   // Every program starts in System32.
                   LR"(..\..)" + m_programs.substr(2), L".."});
    RemoveDirectoryLink(link);
}

TEST_F(InstallationFolderTest, That_others_live_in_loses_nothing_by_a_spelling_that_not_every_Windows_understands)
{
    LayDownSample();
    for (const std::wstring& location :
         {m_programs + L". ", m_programs.substr(2), LR"(\\?\C:\windows\..)" + m_programs.substr(2),
          std::wstring(LR"(\\?\C:/windows)"), LR"(\\localhost\C$)" + m_programs.substr(2),
          LR"(\\?\GLOBALROOT\??\)" + m_programs, LR"(\??\)" + m_programs, m_programs + L"::$INDEX_ALLOCATION",
          std::wstring(L"/"), std::wstring(L"*")})
    {
        SCOPED_TRACE(ToUtf8(location));
        SetLocation(location);
        Run();
        MachineState state = DeclaredStateWith({InstallFolder()});
        CopyTraces(state, After());
        ExpectState(state);
        GoOn();
    }
}
} // namespace
} // namespace Testing
