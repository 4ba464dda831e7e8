#include "support/ImportTableFake.h"
#include "support/TestFolder.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <wil/filesystem.h>

#include <string>
#include <vector>

using namespace Testing;

// What holds of the library and of its stand-in alike.

namespace
{

class DirectoryTest : public testing::Test
{
protected:
    TestFolder folder;
};

using CreateDirectoryDeep = DirectoryTest;
using RemoveDirectoryRecursive = DirectoryTest;
using OpenDirectory = DirectoryTest;

std::wstring Extended(const std::wstring& path)
{
    return L"\\\\?\\" + path;
}

} // namespace

TEST_F(CreateDirectoryDeep, creates_all_that_is_missing)
{
    EXPECT_EQ(wil::CreateDirectoryDeepNoThrow((folder / L"a\\b\\c").c_str()), S_OK);
    EXPECT_TRUE(Exists(folder / L"a\\b\\c"));
}

TEST_F(CreateDirectoryDeep, takes_a_trailing_backslash_and_what_is_there_already)
{
    for (int i = 0; i < 2; ++i)
    {
        EXPECT_EQ(wil::CreateDirectoryDeepNoThrow((folder / L"a\\b\\").c_str()), S_OK);
        EXPECT_TRUE(Exists(folder / L"a\\b"));
    }
}

TEST_F(CreateDirectoryDeep, returns_the_code_of_the_creation_that_failed)
{
    std::vector<std::wstring> tried;
    const Fake<&CreateDirectoryW> create = [&](const wchar_t* path, SECURITY_ATTRIBUTES*) {
        tried.emplace_back(path);
        SetLastError(tried.size() < 3 ? ERROR_PATH_NOT_FOUND : ERROR_ACCESS_DENIED);
        return FALSE;
    };
    EXPECT_EQ(wil::CreateDirectoryDeepNoThrow(L"X:\\a\\b\\c"), E_ACCESSDENIED);
    EXPECT_EQ(tried.size(), 3U);
}

TEST_F(CreateDirectoryDeep, goes_up_only_for_a_missing_parent)
{
    int calls = 0;
    const Fake<&CreateDirectoryW> create = [&](const wchar_t*, SECURITY_ATTRIBUTES*) {
        ++calls;
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    };
    EXPECT_EQ(wil::CreateDirectoryDeepNoThrow(L"X:\\a\\b\\c"), E_ACCESSDENIED);
    EXPECT_EQ(calls, 1);
}

TEST_F(CreateDirectoryDeep, gives_up_when_the_parent_vanishes_again)
{
    int calls = 0;
    const Fake<&CreateDirectoryW> create = [&](const wchar_t* path, SECURITY_ATTRIBUTES*) -> BOOL {
        SetLastError(++calls > 20 ? ERROR_TIMEOUT : ERROR_PATH_NOT_FOUND);
        return std::wstring(path).find(L"\\c") == std::wstring::npos;
    };
    EXPECT_EQ(wil::CreateDirectoryDeepNoThrow(L"X:\\a\\b\\c"), HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(calls, 3);
}

TEST_F(RemoveDirectoryRecursive, removes_a_directory_with_its_files)
{
    folder.AddFile(L"tree\\a");
    folder.AddFile(L"tree\\b");
    EXPECT_EQ(wil::RemoveDirectoryRecursiveNoThrow((folder / L"tree").c_str()), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST_F(RemoveDirectoryRecursive, keeps_the_root_when_it_shall)
{
    folder.AddFile(L"tree\\file");
    EXPECT_EQ(wil::RemoveDirectoryRecursiveNoThrow((folder / L"tree").c_str(),
                                                   wil::RemoveDirectoryOptions::KeepRootDirectory),
              S_OK);
    EXPECT_TRUE(Exists(folder / L"tree"));
    EXPECT_FALSE(Exists(folder / L"tree\\file"));
}

TEST_F(RemoveDirectoryRecursive, tells_that_the_root_is_absent_in_one_way)
{
    for (const wchar_t* const name : {L"absent", L"absent\\", L"absent\\sub", L"absent\\sub\\deeper"})
    {
        EXPECT_EQ(wil::RemoveDirectoryRecursiveNoThrow((folder / name).c_str()), static_cast<HRESULT>(0x80070003));
        EXPECT_EQ(wil::RemoveDirectoryRecursiveNoThrow(Extended(folder / name).c_str()),
                  static_cast<HRESULT>(0x80070003));
    }
}

TEST_F(RemoveDirectoryRecursive, leaves_a_file_that_is_given_as_the_root)
{
    const std::wstring file = folder.AddFile(L"file");
    EXPECT_LT(wil::RemoveDirectoryRecursiveNoThrow(file.c_str()), 0);
    EXPECT_TRUE(Exists(file));
}

TEST_F(RemoveDirectoryRecursive, fails_on_a_read_only_file_and_leaves_it)
{
    const std::wstring file = folder.AddFile(L"tree\\read-only");
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(wil::RemoveDirectoryRecursiveNoThrow((folder / L"tree").c_str()), E_ACCESSDENIED);
    EXPECT_EQ(GetFileAttributesW(file.c_str()) & FILE_ATTRIBUTE_READONLY, DWORD{FILE_ATTRIBUTE_READONLY});
}

TEST_F(RemoveDirectoryRecursive, removes_read_only_files_when_it_shall)
{
    SetFileAttributesW(folder.AddFile(L"tree\\read-only").c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(
        wil::RemoveDirectoryRecursiveNoThrow((folder / L"tree").c_str(), wil::RemoveDirectoryOptions::RemoveReadOnly),
        S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST_F(OpenDirectory, TryCreateFileCanRecurseIntoDirectory_opens_a_directory_and_tells_its_attributes)
{
    WIN32_FIND_DATAW found{};
    found.dwReserved0 = 1;
    EXPECT_TRUE(wil::TryCreateFileCanRecurseIntoDirectory(folder.AddFolder(L"a").c_str(), &found));
    EXPECT_NE(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY, 0U);
    EXPECT_EQ(found.dwReserved0, 0U);
}

TEST_F(OpenDirectory, TryCreateFileCanRecurseIntoDirectory_holds_the_directory_in_its_place)
{
    const std::wstring path = folder.AddFolder(L"a");
    const wil::unique_hfile directory = wil::TryCreateFileCanRecurseIntoDirectory(path.c_str(), nullptr);
    ASSERT_TRUE(directory);
    EXPECT_FALSE(MoveFileW(path.c_str(), (folder / L"b").c_str()));
}

TEST_F(OpenDirectory, TryCreateFileCanRecurseIntoDirectory_takes_directories_alone)
{
    EXPECT_FALSE(wil::TryCreateFileCanRecurseIntoDirectory(folder.AddFile(L"file").c_str(), nullptr));
    EXPECT_FALSE(wil::TryCreateFileCanRecurseIntoDirectory((folder / L"absent").c_str(), nullptr));
}

TEST_F(OpenDirectory, TryCreateFileCanRecurseIntoDirectory_tells_links_from_other_reparse_points)
{
    const std::wstring path = folder.AddFolder(L"a");
    DWORD tag = 0;
    const Fake<&GetFileInformationByHandleEx> inform = [&](HANDLE, FILE_INFO_BY_HANDLE_CLASS kind, void* answer,
                                                           DWORD) {
        EXPECT_EQ(kind, FileAttributeTagInfo);
        *static_cast<FILE_ATTRIBUTE_TAG_INFO*>(answer) = {FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT, tag};
        return TRUE;
    };
    const auto opens = [&](DWORD reparseTag) {
        tag = reparseTag;
        return wil::TryCreateFileCanRecurseIntoDirectory(path.c_str(), nullptr).is_valid();
    };
    EXPECT_FALSE(opens(0xA0000003)); // a junction
    EXPECT_FALSE(opens(0xA000000C)); // a symbolic link
    EXPECT_TRUE(opens(0x9000001A));  // a directory of a cloud store
    EXPECT_TRUE(opens(0x80000018));  // a directory of a container's layer
}
