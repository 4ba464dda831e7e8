#include "Installer/Common.h"

#include "support/DirectoryLink.h"
#include "support/FailureLog.h"
#include "support/FakeFolders.h"
#include "support/OutOfMemory.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"
#include "unit/external/LinksAsOnWindows.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using Pauses = std::vector<DWORD>;
using namespace std::string_literals;

constexpr HRESULT c_accessDenied = HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);

class FoldersTest : public testing::Test
{
protected:
    VirtualClock clock;
    TestFolder root;
    FakeFolders folders{root};
};

TEST_F(FoldersTest, GetUninstallerTempFolder_creates_its_folder_with_all_parents)
{
    const std::wstring folder = GetUninstallerTempFolder();

    EXPECT_EQ(folder, folders.Temp() + L"Velmora\\Uninstaller\\");
    EXPECT_TRUE(FolderExists(folder));
    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST_F(FoldersTest, GetUninstallerTempFolder_is_content_with_a_folder_that_is_there)
{
    root.AddFile(L"Temp\\Velmora\\Uninstaller\\kept.txt");

    EXPECT_EQ(GetUninstallerTempFolder(), folders.Temp() + L"Velmora\\Uninstaller\\");

    EXPECT_TRUE(Exists(root / L"Temp\\Velmora\\Uninstaller\\kept.txt"));
    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST_F(FoldersTest, GetUninstallerTempFolder_returns_a_folder_that_ten_tries_could_not_create)
{
    root.AddFile(L"Temp\\Velmora"); // a file where the folder belongs

    EXPECT_EQ(GetUninstallerTempFolder(), folders.Temp() + L"Velmora\\Uninstaller\\");

    EXPECT_FALSE(FolderExists(folders.Temp() + L"Velmora\\Uninstaller\\"));
    EXPECT_EQ(clock.Sleeps(), Pauses(10, 1000));
}

TEST_F(FoldersTest, GetUninstallerTempFolder_stops_trying_when_the_folder_could_be_created)
{
    const std::wstring obstacle = root.AddFile(L"Temp\\Velmora");
    clock.At(2500, [&] { DeleteFileW(obstacle.c_str()); });

    EXPECT_TRUE(FolderExists(GetUninstallerTempFolder()));

    EXPECT_EQ(clock.Sleeps(), Pauses(3, 1000));
}

TEST_F(FoldersTest, GetUninstallerTempFolder_falls_back_to_the_folder_of_Windows)
{
    std::vector<std::wstring> created;
    Fake<&CreateDirectoryW> create = [&](LPCWSTR path, LPSECURITY_ATTRIBUTES) -> BOOL {
        created.emplace_back(path);
        return TRUE;
    };
    folders.tempPathFails = true;

    EXPECT_EQ(GetUninstallerTempFolder(), L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\");

    EXPECT_EQ(created, std::vector<std::wstring>{L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\"});
}

TEST_F(FoldersTest, GetUninstallerTempFolder_tries_the_fallback_ten_times_too)
{
    unsigned tries = 0;
    Fake<&CreateDirectoryW> create = [&](LPCWSTR, LPSECURITY_ATTRIBUTES) -> BOOL {
        ++tries;
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    };
    folders.tempPathFails = true;

    EXPECT_EQ(GetUninstallerTempFolder(), L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\");

    EXPECT_EQ(tries, 10U);
    EXPECT_EQ(clock.Sleeps(), Pauses(10, 1000));
}

TEST_F(FoldersTest, GetUninstallerTempFolder_falls_back_when_only_the_second_question_fails)
{
    Fake<&CreateDirectoryW> create = [](LPCWSTR, LPSECURITY_ATTRIBUTES) -> BOOL { return TRUE; };
    Fake<&GetTempPathW> tempPath = [](DWORD size, LPWSTR) -> DWORD { return size == 0 ? 20 : 0; };

    EXPECT_EQ(GetUninstallerTempFolder(), L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\");
}

TEST_F(FoldersTest, GetUninstallerTempFolder_falls_back_when_the_folder_grows_between_the_questions)
{
    Fake<&CreateDirectoryW> create = [](LPCWSTR, LPSECURITY_ATTRIBUTES) -> BOOL { return TRUE; };
    Fake<&GetTempPathW> tempPath = [](DWORD size, LPWSTR) -> DWORD { return size == 0 ? 20 : 30; };

    EXPECT_EQ(GetUninstallerTempFolder(), L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\");
}

TEST_F(FoldersTest, GetUninstallerTempFolder_asks_for_the_length_first)
{
    std::vector<DWORD> sizes;
    Fake<&GetTempPathW> tempPath = [&](DWORD size, LPWSTR path) {
        sizes.push_back(size);
        EXPECT_EQ(path == nullptr, sizes.size() == 1);
        return decltype(tempPath)::Real(size, path);
    };
    Fake<&CreateDirectoryW> create = [](LPCWSTR, LPSECURITY_ATTRIBUTES) -> BOOL { return TRUE; };

    GetUninstallerTempFolder();

    ASSERT_EQ(sizes.size(), 2U);
    EXPECT_EQ(sizes[0], 0U);
    EXPECT_GT(sizes[1], 0U);
}

TEST_F(FoldersTest, GetProgramFilesFolder_ends_in_a_backslash)
{
    EXPECT_EQ(GetProgramFilesFolder(), folders.ProgramFiles() + L"\\");
}

TEST_F(FoldersTest, GetProgramFilesFolder_has_a_fixed_fallback)
{
    folders.knownFolderResult = E_FAIL;

    EXPECT_EQ(GetProgramFilesFolder(), L"C:\\Program Files\\");
    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST_F(FoldersTest, GetProgramFilesX64Folder_ends_in_a_backslash)
{
    EXPECT_EQ(GetProgramFilesX64Folder(), folders.ProgramFilesX64() + L"\\");
}

TEST_F(FoldersTest, GetProgramFilesX64Folder_has_a_fixed_fallback)
{
    folders.knownFolderResult = E_FAIL;

    EXPECT_EQ(GetProgramFilesX64Folder(), L"C:\\Program Files\\");
    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST_F(FoldersTest, GetProgramDataFolder_ends_in_a_backslash)
{
    EXPECT_EQ(GetProgramDataFolder(), folders.ProgramData() + L"\\");
}

TEST_F(FoldersTest, GetProgramDataFolder_has_a_fixed_fallback)
{
    folders.knownFolderResult = E_FAIL;

    EXPECT_EQ(GetProgramDataFolder(), L"C:\\ProgramData\\");
    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST_F(FoldersTest, the_buffers_of_known_folders_are_freed)
{
    unsigned freed = 0;
    Fake<&CoTaskMemFree> free = [&](LPVOID memory) {
        freed += memory != nullptr ? 1 : 0;
        decltype(free)::Real(memory);
    };

    GetProgramFilesFolder();
    GetProgramFilesX64Folder();
    GetProgramDataFolder();

    EXPECT_EQ(freed, 3U);
}

TEST(ConversionTest, converts_both_ways)
{
    EXPECT_EQ(Utf8ToWide("\xc3\x85ngstr\xc3\xb6m \xe2\x82\xac \xf0\x9f\x98\x80"),
              L"\u00c5ngstr\u00f6m \u20ac \U0001f600");
    EXPECT_EQ(WideToUtf8(L"\u00c5ngstr\u00f6m \u20ac \U0001f600"),
              "\xc3\x85ngstr\xc3\xb6m \xe2\x82\xac \xf0\x9f\x98\x80");
}

TEST(ConversionTest, keeps_zero_characters)
{
    EXPECT_EQ(Utf8ToWide("a\0b"s), L"a\0b"s);
    EXPECT_EQ(WideToUtf8(L"a\0b"s), "a\0b"s);
}

TEST(ConversionTest, gives_nothing_for_nothing)
{
    EXPECT_EQ(Utf8ToWide(""), L"");
    EXPECT_EQ(WideToUtf8(L""), "");
}

TEST(ConversionTest, gives_nothing_for_invalid_text)
{
    EXPECT_EQ(Utf8ToWide("fine \xff not"), L"");
    EXPECT_EQ(Utf8ToWide("\xc3"), L"");
    EXPECT_EQ(WideToUtf8(L"lone \xd800 surrogate"), "");
}

TEST(ConversionTest, converts_with_flags_0_and_the_length_of_the_string)
{
    std::vector<std::pair<DWORD, int>> toWide;
    std::vector<std::pair<DWORD, int>> toUtf8;
    Fake<&MultiByteToWideChar> multiByte = [&](UINT page, DWORD flags, LPCCH text, int length, LPWSTR out, int size) {
        EXPECT_EQ(page, static_cast<UINT>(CP_UTF8));
        toWide.emplace_back(flags, length);
        return decltype(multiByte)::Real(page, flags, text, length, out, size);
    };
    Fake<&WideCharToMultiByte> wideChar = [&](UINT page, DWORD flags, LPCWCH text, int length, LPSTR out, int size,
                                              LPCCH replacement, LPBOOL used) {
        EXPECT_EQ(page, static_cast<UINT>(CP_UTF8));
        toUtf8.emplace_back(flags, length);
        return decltype(wideChar)::Real(page, flags, text, length, out, size, replacement, used);
    };

    Utf8ToWide("abc");
    WideToUtf8(L"abcd");

    EXPECT_EQ(toWide.back(), std::make_pair(DWORD{0}, 3));
    EXPECT_EQ(toUtf8.back(), std::make_pair(DWORD{0}, 4));
}

class DeleteFolderTest : public testing::Test
{
protected:
    VirtualClock clock;
    FailureLog failures;
    TestFolder root;
};

TEST_F(DeleteFolderTest, DeleteFolderWithRetry_removes_the_folder_and_everything_in_it)
{
    root.AddFile(L"folder\\a.txt");
    root.AddFile(L"folder\\deep\\er\\b.txt");
    root.AddFile(L"folder2\\kept.txt");

    EXPECT_EQ(DeleteFolderWithRetry(root / L"folder\\"), S_OK);

    EXPECT_FALSE(Exists(root / L"folder"));
    EXPECT_TRUE(Exists(root / L"folder2\\kept.txt"));
    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST_F(DeleteFolderTest, DeleteFolderWithRetry_takes_a_missing_folder_for_done)
{
    EXPECT_EQ(DeleteFolderWithRetry(root / L"missing"), S_OK);
    EXPECT_EQ(DeleteFolderWithRetry(root / L"missing\\too\\"), S_OK);

    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST_F(DeleteFolderTest, DeleteFolderWithRetry_gives_up_on_a_read_only_file_after_ten_attempts)
{
    root.AddFile(L"folder\\a.txt");
    const std::wstring readOnly = root.AddFile(L"folder\\b.txt");
    root.AddFile(L"folder\\c\\d.txt");
    SetFileAttributesW(readOnly.c_str(), FILE_ATTRIBUTE_READONLY);

    EXPECT_EQ(DeleteFolderWithRetry(root / L"folder"), c_accessDenied);

    EXPECT_EQ(clock.Sleeps(), Pauses(10, 1000));
    EXPECT_TRUE(Exists(readOnly));
    EXPECT_FALSE(Exists(root / L"folder\\a.txt"));
    EXPECT_FALSE(Exists(root / L"folder\\c"));
    EXPECT_GE(failures.Entries().size(), 10U);
}

TEST_F(DeleteFolderTest, DeleteFolderWithRetry_waits_for_a_file_that_is_let_go)
{
    const std::wstring path = root.AddFile(L"folder\\open.txt");
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    clock.At(3500, [&] { CloseHandle(file); });

    EXPECT_EQ(DeleteFolderWithRetry(root / L"folder"), S_OK);

    EXPECT_EQ(clock.Sleeps(), Pauses(4, 1000));
    EXPECT_FALSE(Exists(root / L"folder"));
}

TEST_F(DeleteFolderTest, RemoveFolder_makes_one_attempt)
{
    const std::wstring readOnly = root.AddFile(L"folder\\b.txt");
    SetFileAttributesW(readOnly.c_str(), FILE_ATTRIBUTE_READONLY);

    EXPECT_EQ(RemoveFolder(root / L"folder"), c_accessDenied);
    EXPECT_EQ(RemoveFolder(root / L"missing"), S_OK);

    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST_F(DeleteFolderTest, RemoveFolder_leaves_a_file_of_that_name)
{
    const std::wstring file = root.AddFile(L"file");

    EXPECT_NE(RemoveFolder(file), S_OK);

    EXPECT_TRUE(Exists(file));
}

TEST_F(DeleteFolderTest, RemoveFolder_refuses_a_link_whichever_way_its_name_ends)
{
    root.AddFile(L"target\\precious.txt");
    ASSERT_TRUE(CreateDirectoryLink(root / L"link", root / L"target"));

    for (const wchar_t* const ending : {L"", L"\\", L"\\\\", L"/", L"//"})
    {
        EXPECT_EQ(RemoveFolder(root / L"link" + ending), HRESULT_FROM_WIN32(ERROR_REPARSE_POINT_ENCOUNTERED));
    }

    EXPECT_TRUE(Exists(root / L"link"));
    EXPECT_TRUE(Exists(root / L"target\\precious.txt"));
}

TEST_F(DeleteFolderTest, RemoveFolder_looks_at_the_name_itself_before_anything_is_opened)
{
    std::vector<std::wstring> asked;
    Fake<&GetFileAttributesW> attributes = [&](LPCWSTR path) -> DWORD {
        asked.emplace_back(path);
        return FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    };
    Fake<&CreateFileW> create = [](LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) -> HANDLE {
        ADD_FAILURE() << "the link is opened";
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    };

    EXPECT_EQ(RemoveFolder(L"C:\\folder\\link\\//"), HRESULT_FROM_WIN32(ERROR_REPARSE_POINT_ENCOUNTERED));

    EXPECT_EQ(asked, std::vector<std::wstring>{L"C:\\folder\\link"});
}

TEST_F(DeleteFolderTest, RemoveFolder_removes_a_link_inside_without_following_it)
{
    root.AddFile(L"target\\precious.txt");
    root.AddFile(L"folder\\a.txt");
    ASSERT_TRUE(CreateDirectoryLink(root / L"folder\\link", root / L"target"));
    const LinksAsOnWindows links;

    EXPECT_EQ(RemoveFolder(root / L"folder"), S_OK);

    EXPECT_FALSE(Exists(root / L"folder"));
    EXPECT_TRUE(Exists(root / L"target\\precious.txt"));
}

TEST_F(DeleteFolderTest, RemoveFolder_does_not_throw_when_memory_runs_out)
{
    const std::wstring folder = root.AddFolder(L"a folder with a name that is longer than what a string holds itself");
    HRESULT result = S_OK;
    {
        const OutOfMemory outOfMemory;
        result = RemoveFolder(folder);
    }

    EXPECT_EQ(result, E_OUTOFMEMORY);
    EXPECT_TRUE(Exists(folder));
}

TEST_F(DeleteFolderTest, FolderExists_tells_folders_from_files_and_from_nothing)
{
    root.AddFile(L"folder\\file");

    EXPECT_TRUE(FolderExists(root / L"folder"));
    EXPECT_TRUE(FolderExists(root / L"folder\\"));
    EXPECT_FALSE(FolderExists(root / L"folder\\file"));
    EXPECT_FALSE(FolderExists(root / L"missing"));
}

TEST(SystemMessageTest, is_asked_of_the_system_for_the_code_in_the_language_of_the_user)
{
    Fake<&FormatMessageW> format = [](DWORD flags, LPCVOID source, DWORD code, DWORD language, LPWSTR text, DWORD size,
                                      va_list* arguments) -> DWORD {
        EXPECT_EQ(flags, 0x1200U);
        EXPECT_EQ(source, nullptr);
        EXPECT_EQ(code, 0x80070005U);
        EXPECT_EQ(language, 0x400U);
        EXPECT_EQ(size, 256U);
        EXPECT_EQ(arguments, nullptr);
        EXPECT_EQ(std::wstring(text, size), std::wstring(256, L'\0'));
        text[0] = L'!';
        return 1;
    };

    EXPECT_EQ(GetSystemMessage(c_accessDenied), L"!");
}

TEST(SystemMessageTest, is_empty_for_a_code_without_one)
{
    EXPECT_EQ(GetSystemMessage(static_cast<HRESULT>(0xa1234567)), L"");
}

} // namespace
