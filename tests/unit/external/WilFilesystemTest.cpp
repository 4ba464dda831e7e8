#include "support/common/ImportTableFake.h"
#include "support/unit/TestFolder.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <wil/filesystem.h>

#include <cstddef>
#include <string>

using namespace Testing;

// What holds of the library and of its stand-in alike.

namespace
{

class DirectoryTest : public testing::Test
{
protected:
    TestFolder folder;
};

using CreateDirectoryDeepTest = DirectoryTest;
using RemoveDirectoryRecursiveTest = DirectoryTest;

} // namespace

TEST_F(CreateDirectoryDeepTest, Creates_all_that_is_missing_if_it_is_not_there_already)
{
    for (const wchar_t* const name : {L"a\\b\\c", L"a\\b\\c", L"a\\d\\", L"a\\d\\"})
    {
        EXPECT_EQ(wil::CreateDirectoryDeepNoThrow((folder / name).c_str()), S_OK);
        EXPECT_TRUE(Exists(folder / name));
    }
}

TEST_F(CreateDirectoryDeepTest, Goes_up_for_a_missing_parent_alone_and_returns_the_code_of_the_creation_that_failed)
{
    for (const std::size_t missing : {0U, 2U})
    {
        std::size_t calls = 0;
        const Fake<&CreateDirectoryW> create = [&](const wchar_t*, SECURITY_ATTRIBUTES*) {
            SetLastError(++calls <= missing ? ERROR_PATH_NOT_FOUND : ERROR_ACCESS_DENIED);
            return FALSE;
        };
        EXPECT_EQ(wil::CreateDirectoryDeepNoThrow(L"X:\\a\\b\\c"), E_ACCESSDENIED);
        EXPECT_EQ(calls, missing + 1);
    }
}

TEST_F(CreateDirectoryDeepTest, Gives_up_when_the_parent_vanishes_again)
{
    int calls = 0;
    const Fake<&CreateDirectoryW> create = [&](const wchar_t* path, SECURITY_ATTRIBUTES*) -> BOOL {
        SetLastError(++calls > 20 ? ERROR_TIMEOUT : ERROR_PATH_NOT_FOUND);
        return std::wstring(path).find(L"\\c") == std::wstring::npos;
    };
    EXPECT_EQ(wil::CreateDirectoryDeepNoThrow(L"X:\\a\\b\\c"), HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(calls, 3);
}

TEST_F(RemoveDirectoryRecursiveTest, Removes_a_directory_with_its_files_and_tells_that_it_is_absent_in_one_way)
{
    folder.AddFile(L"tree\\a");
    folder.AddFile(L"tree\\b");
    EXPECT_EQ(wil::RemoveDirectoryRecursiveNoThrow((folder / L"tree").c_str()), S_OK);
    for (const wchar_t* const name : {L"tree", L"tree\\", L"tree\\sub", L"tree\\sub\\deeper"})
    {
        for (const std::wstring& path : {folder / name, L"\\\\?\\" + (folder / name)})
        {
            EXPECT_FALSE(Exists(folder / name));
            EXPECT_EQ(wil::RemoveDirectoryRecursiveNoThrow(path.c_str()), static_cast<HRESULT>(0x80070003));
        }
    }
}

TEST_F(RemoveDirectoryRecursiveTest, Leaves_a_file_that_is_read_only_or_given_as_the_root)
{
    const std::wstring file = folder.AddFile(L"tree\\read-only");
    EXPECT_LT(wil::RemoveDirectoryRecursiveNoThrow(file.c_str()), 0);
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(wil::RemoveDirectoryRecursiveNoThrow((folder / L"tree").c_str()), E_ACCESSDENIED);
    EXPECT_EQ(GetFileAttributesW(file.c_str()) & FILE_ATTRIBUTE_READONLY, DWORD{FILE_ATTRIBUTE_READONLY});
}
