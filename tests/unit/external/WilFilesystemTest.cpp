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
