#include "LinksAsOnWindows.h"
#include "RecordedFailures.h"
#include "support/DirectoryLink.h"
#include "support/ImportTableFake.h"
#include "support/TestFolder.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <wil/filesystem.h>
#include <wil/resource.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

using namespace Testing;
using wil::RemoveDirectoryRecursiveNoThrow;

namespace
{

constexpr HRESULT c_isLink = HRESULT_FROM_WIN32(4395);

class RemoveDirectoryTest : public testing::Test
{
protected:
    HRESULT Remove(const std::wstring& name) { return RemoveDirectoryRecursiveNoThrow((folder / name).c_str()); }

    void AddReadOnlyFile(const std::wstring& name)
    {
        SetFileAttributesW(folder.AddFile(name).c_str(), FILE_ATTRIBUTE_READONLY);
    }

    TestFolder folder;
    RecordedFailures failures;
};

std::wstring Extended(const std::wstring& path)
{
    return L"\\\\?\\" + path;
}

wil::unique_hfile OpenForReading(const std::wstring& path)
{
    return wil::unique_hfile(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                         FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

} // namespace

TEST_F(RemoveDirectoryTest, removes_a_tree_with_its_root)
{
    folder.AddFile(L"tree\\a");
    folder.AddFile(L"tree\\sub\\b");
    folder.AddFile(L"tree\\sub\\deeper\\c");
    folder.AddFolder(L"tree\\empty\\sub");
    folder.AddFile(L"beside");
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
    EXPECT_TRUE(Exists(folder / L"beside"));
}

TEST_F(RemoveDirectoryTest, takes_a_path_in_every_form)
{
    const std::wstring path = folder / L"tree";
    std::wstring forward = path;
    std::replace(forward.begin(), forward.end(), L'\\', L'/');
    for (const std::wstring& form : {path, path + L"\\", path + L"\\\\", forward, forward + L"/", forward + L"//",
                                     Extended(path), Extended(path) + L"\\", L"\\\\.\\" + path, L"//?/" + forward,
                                     L"//./" + forward + L"/", folder / L"other\\..\\tree", path + L".", path + L" "})
    {
        folder.AddFile(L"tree\\sub\\file");
        EXPECT_EQ(RemoveDirectoryRecursiveNoThrow(form.c_str()), S_OK) << testing::PrintToString(form);
        EXPECT_FALSE(Exists(path)) << testing::PrintToString(form);
    }
}

TEST_F(RemoveDirectoryTest, takes_a_relative_path)
{
    folder.AddFile(L"tree\\sub\\file");
    SetCurrentDirectoryW(folder.Path().c_str());
    EXPECT_EQ(RemoveDirectoryRecursiveNoThrow(L"tree"), S_OK);
    // Back to where it was is no way under Wine when that is no folder of a drive.
    SetCurrentDirectoryW((folder / L"..").c_str());
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST_F(RemoveDirectoryTest, opens_every_kind_of_path_in_its_extended_form)
{
    std::wstring opened;
    const Fake<&CreateFileW> create = [&](const wchar_t* path, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD,
                                          HANDLE) {
        opened = path;
        SetLastError(ERROR_BAD_NETPATH);
        return INVALID_HANDLE_VALUE;
    };
    const auto openedFor = [&](const wchar_t* path) {
        EXPECT_EQ(RemoveDirectoryRecursiveNoThrow(path), HRESULT_FROM_WIN32(ERROR_BAD_NETPATH));
        return opened;
    };
    EXPECT_EQ(openedFor(L"C:\\a\\b"), L"\\\\?\\C:\\a\\b");
    EXPECT_EQ(openedFor(L"C:/a//b//"), L"\\\\?\\C:\\a\\b");
    EXPECT_EQ(openedFor(L"C:\\"), L"\\\\?\\C:\\");
    EXPECT_EQ(openedFor(L"\\\\server\\share\\a\\"), L"\\\\?\\UNC\\server\\share\\a");
    EXPECT_EQ(openedFor(L"\\\\server\\share\\"), L"\\\\?\\UNC\\server\\share\\");
    EXPECT_EQ(openedFor(L"\\\\?\\UNC\\server\\share\\a\\"), L"\\\\?\\UNC\\server\\share\\a");
    EXPECT_EQ(openedFor(L"\\\\.\\C:\\a"), L"\\\\?\\C:\\a");
    EXPECT_EQ(openedFor(L"\\\\?\\C:\\a. \\"), L"\\\\?\\C:\\a. ");
    const std::wstring longName = L"C:\\" + std::wstring(300, L'x');
    EXPECT_EQ(openedFor(longName.c_str()), L"\\\\?\\" + longName);
}

TEST_F(RemoveDirectoryTest, takes_the_volume_of_an_extended_path_for_no_directory_of_its_own)
{
    std::wstring opened;
    const Fake<&CreateFileW> create = [&](const wchar_t* path, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD,
                                          HANDLE) {
        opened = path;
        SetLastError(ERROR_BAD_NETPATH);
        return INVALID_HANDLE_VALUE;
    };
    const auto openedFor = [&](const std::wstring& path) {
        EXPECT_EQ(RemoveDirectoryRecursiveNoThrow(path.c_str()), HRESULT_FROM_WIN32(ERROR_BAD_NETPATH));
        return opened;
    };
    const std::wstring volume = L"\\\\?\\Volume{11111111-2222-3333-4444-555555555555}";
    EXPECT_EQ(openedFor(volume + L"\\"), volume + L"\\");
    EXPECT_EQ(openedFor(volume + L"\\\\"), volume + L"\\");
    EXPECT_EQ(openedFor(volume + L"\\a\\"), volume + L"\\a");
    EXPECT_EQ(openedFor(L"\\\\?\\C:\\"), L"\\\\?\\C:\\");
    EXPECT_EQ(openedFor(L"\\\\?\\UNC\\server\\share\\"), L"\\\\?\\UNC\\server\\share\\");
    EXPECT_EQ(openedFor(L"\\\\?\\unc\\server\\share\\"), L"\\\\?\\unc\\server\\share\\");
    EXPECT_EQ(openedFor(L"\\\\?\\unc\\server\\share\\a\\"), L"\\\\?\\unc\\server\\share\\a");
}

TEST_F(RemoveDirectoryTest, makes_a_path_full_whose_prefix_has_forward_slashes)
{
    // As Windows does it: slashes become backslashes, several of them one, but for those that it begins with.
    const Fake<&GetFullPathNameW> makeFull = [](const wchar_t* path, DWORD size, wchar_t* buffer, wchar_t**) -> DWORD {
        std::wstring full = path;
        std::replace(full.begin(), full.end(), L'/', L'\\');
        for (size_t twice = full.find(L"\\\\", 2); twice != std::wstring::npos; twice = full.find(L"\\\\", 2))
        {
            full.erase(twice, 1);
        }
        if (full.size() >= size)
        {
            return static_cast<DWORD>(full.size() + 1);
        }
        buffer[full.copy(buffer, full.size())] = L'\0';
        return static_cast<DWORD>(full.size());
    };
    std::wstring opened;
    const Fake<&CreateFileW> create = [&](const wchar_t* path, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD,
                                          HANDLE) {
        opened = path;
        SetLastError(ERROR_BAD_NETPATH);
        return INVALID_HANDLE_VALUE;
    };
    const auto openedFor = [&](const wchar_t* path) {
        EXPECT_EQ(RemoveDirectoryRecursiveNoThrow(path), HRESULT_FROM_WIN32(ERROR_BAD_NETPATH));
        return opened;
    };
    EXPECT_EQ(openedFor(L"//?/C:/a//b/"), L"\\\\?\\C:\\a\\b");
    EXPECT_EQ(openedFor(L"\\\\?/C:/a"), L"\\\\?\\C:\\a");
    EXPECT_EQ(openedFor(L"/\\?\\C:\\a"), L"\\\\?\\C:\\a");
    EXPECT_EQ(openedFor(L"//?/C:/"), L"\\\\?\\C:\\");
    EXPECT_EQ(openedFor(L"//./C:/a"), L"\\\\?\\C:\\a");
    EXPECT_EQ(openedFor(L"//?/UNC/server/share/a/"), L"\\\\?\\UNC\\server\\share\\a");
    EXPECT_EQ(openedFor(L"//server/share/a/"), L"\\\\?\\UNC\\server\\share\\a");
    EXPECT_EQ(openedFor(L"//?/Volume{1}/"), L"\\\\?\\Volume{1}\\");
    EXPECT_EQ(openedFor(L"\\\\.\\Volume{1}\\a"), L"\\\\?\\Volume{1}\\a");
    // A path that is long, and one that is taken as it is.
    const std::wstring longName(300, L'x');
    EXPECT_EQ(openedFor((L"//?/C:/" + longName).c_str()), L"\\\\?\\C:\\" + longName);
    EXPECT_EQ(openedFor(L"\\\\?\\C:\\a\\\\b"), L"\\\\?\\C:\\a\\\\b");
}

TEST_F(RemoveDirectoryTest, fails_for_an_empty_path)
{
    EXPECT_LT(RemoveDirectoryRecursiveNoThrow(L""), 0);
}

TEST_F(RemoveDirectoryTest, tells_that_a_file_is_no_directory)
{
    folder.AddFile(L"file");
    EXPECT_EQ(Remove(L"file"), HRESULT_FROM_WIN32(ERROR_DIRECTORY));
    EXPECT_TRUE(Exists(folder / L"file"));
}

TEST_F(RemoveDirectoryTest, removes_names_that_windows_would_normalise)
{
    for (const wchar_t* const name : {L"tree\\dot.", L"tree\\blank ", L"tree\\both. . ", L"tree\\sub. \\file. "})
    {
        folder.AddFile(name);
    }
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST_F(RemoveDirectoryTest, removes_paths_beyond_260_characters)
{
    std::wstring path = L"tree";
    for (int i = 0; i < 8; ++i)
    {
        path += L"\\" + std::wstring(100, L'x');
    }
    folder.AddFile(path + L"\\file");
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST_F(RemoveDirectoryTest, removes_a_tree_two_hundred_directories_deep)
{
    std::wstring path = Extended(folder / L"tree");
    for (int i = 0; i < 200; ++i)
    {
        ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
        path += L"\\d";
    }
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST_F(RemoveDirectoryTest, removes_a_directory_that_takes_many_listings)
{
    for (int i = 0; i < 700; ++i)
    {
        folder.AddFile(L"tree\\a file whose name is long enough to fill the listing soon " + std::to_wstring(i), "");
    }
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST_F(RemoveDirectoryTest, calls_the_system_once_for_each_file_and_opens_each_directory_once)
{
    constexpr int c_files = 20;
    for (int i = 0; i < c_files; ++i)
    {
        folder.AddFile(L"tree\\" + std::to_wstring(i), "");
        folder.AddFile(L"tree\\sub\\" + std::to_wstring(i), "");
    }
    int opened = 0;
    int informed = 0;
    int deleted = 0;
    int looked = 0;
    const Fake<&CreateFileW> create = [&](const wchar_t* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                                          DWORD creation, DWORD flags, HANDLE templateFile) {
        ++opened;
        return Fake<&CreateFileW>::Real(path, access, share, security, creation, flags, templateFile);
    };
    const Fake<&GetFileInformationByHandleEx> inform = [&](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, void* answer,
                                                           DWORD size) {
        ++informed;
        return Fake<&GetFileInformationByHandleEx>::Real(handle, kind, answer, size);
    };
    const Fake<&DeleteFileW> remove = [&](const wchar_t* path) {
        ++deleted;
        return Fake<&DeleteFileW>::Real(path);
    };
    const Fake<&GetFileAttributesW> attributes = [&](const wchar_t* path) {
        ++looked;
        return Fake<&GetFileAttributesW>::Real(path);
    };
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_EQ(opened, 2);
    EXPECT_EQ(deleted, 2 * c_files);
    // Of each directory its attributes, its entries and that there are no more; of the root what its path is seen as.
    EXPECT_EQ(informed, 2 * 3);
    EXPECT_EQ(looked, 1);
}

TEST_F(RemoveDirectoryTest, goes_on_after_a_failure_and_returns_the_first_one)
{
    AddReadOnlyFile(L"tree\\b\\read-only");
    folder.AddFile(L"tree\\a\\file");
    folder.AddFile(L"tree\\b\\file");
    folder.AddFile(L"tree\\b\\sub\\file");
    folder.AddFile(L"tree\\c\\file");
    folder.AddFile(L"tree\\file");
    EXPECT_EQ(Remove(L"tree"), E_ACCESSDENIED);
    EXPECT_TRUE(Exists(folder / L"tree\\b\\read-only"));
    EXPECT_FALSE(Exists(folder / L"tree\\a"));
    EXPECT_FALSE(Exists(folder / L"tree\\b\\file"));
    EXPECT_FALSE(Exists(folder / L"tree\\b\\sub"));
    EXPECT_FALSE(Exists(folder / L"tree\\c"));
    EXPECT_FALSE(Exists(folder / L"tree\\file"));
    // The directories above it are not tried.
    ASSERT_EQ(failures.Count(), 1U);
    EXPECT_EQ(failures.Last().hr, E_ACCESSDENIED);
    EXPECT_EQ(failures.Last().message, Extended(folder / L"tree\\b\\read-only"));
}

TEST_F(RemoveDirectoryTest, records_every_failure_and_returns_the_first_one)
{
    folder.AddFile(L"tree\\file");
    folder.AddFile(L"tree\\sub\\file");
    DWORD error = ERROR_SHARING_VIOLATION;
    const Fake<&DeleteFileW> remove = [&](const wchar_t*) {
        SetLastError(std::exchange(error, ERROR_ACCESS_DENIED));
        return FALSE;
    };
    EXPECT_EQ(Remove(L"tree"), HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION));
    ASSERT_EQ(failures.Count(), 2U);
    EXPECT_EQ(failures.All()[0].message, Extended(folder / L"tree\\file"));
    EXPECT_EQ(failures.All()[1].hr, E_ACCESSDENIED);
}

TEST_F(RemoveDirectoryTest, leaves_a_file_that_is_open_and_removes_it_once_it_is_closed)
{
    const std::wstring file = folder.AddFile(L"tree\\file");
    {
        const wil::unique_hfile open = OpenForReading(file);
        EXPECT_EQ(Remove(L"tree"), HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION));
    }
    EXPECT_EQ(Remove(L"tree"), S_OK);
}

TEST_F(RemoveDirectoryTest, empties_a_directory_that_is_open_and_tells_why_it_stays)
{
    folder.AddFile(L"tree\\held\\file");
    {
        const wil::unique_hfile open = OpenForReading(folder / L"tree\\held");
        EXPECT_EQ(Remove(L"tree"), HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION));
        EXPECT_TRUE(Exists(folder / L"tree\\held"));
        EXPECT_FALSE(Exists(folder / L"tree\\held\\file"));
        EXPECT_EQ(failures.Last().message, Extended(folder / L"tree\\held"));
    }
    EXPECT_EQ(Remove(L"tree"), S_OK);
}

TEST_F(RemoveDirectoryTest, leaves_a_directory_that_cannot_be_opened_at_all)
{
    folder.AddFile(L"tree\\closed\\file");
    folder.AddFile(L"tree\\file");
    const Fake<&CreateFileW> create = [](const wchar_t* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                                         DWORD creation, DWORD flags, HANDLE templateFile) {
        if (std::wstring(path).ends_with(L"closed"))
        {
            const bool isForAll = (access & DELETE) != 0 && (access & FILE_LIST_DIRECTORY) != 0;
            SetLastError(isForAll ? ERROR_ACCESS_DENIED : ERROR_BAD_COMMAND);
            return INVALID_HANDLE_VALUE;
        }
        return Fake<&CreateFileW>::Real(path, access, share, security, creation, flags, templateFile);
    };
    EXPECT_EQ(Remove(L"tree"), E_ACCESSDENIED);
    EXPECT_TRUE(Exists(folder / L"tree\\closed\\file"));
    EXPECT_FALSE(Exists(folder / L"tree\\file"));
    ASSERT_EQ(failures.Count(), 1U);
}

TEST_F(RemoveDirectoryTest, takes_what_somebody_else_removed_meanwhile_as_removed)
{
    folder.AddFile(L"tree\\file");
    folder.AddFolder(L"tree\\sub");
    const Fake<&DeleteFileW> remove = [&](const wchar_t* path) {
        EXPECT_TRUE(Fake<&DeleteFileW>::Real(path));
        EXPECT_TRUE(RemoveDirectoryW((folder / L"tree\\sub").c_str()));
        SetLastError(ERROR_FILE_NOT_FOUND);
        return FALSE;
    };
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
    EXPECT_EQ(failures.Count(), 0U);
}

TEST_F(RemoveDirectoryTest, tells_when_a_directory_cannot_be_listed)
{
    folder.AddFile(L"tree\\sub\\file");
    const Fake<&GetFileInformationByHandleEx> inform = [](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, void* answer,
                                                          DWORD size) {
        static int listings = 0;
        if (kind == FileFullDirectoryRestartInfo && ++listings == 2)
        {
            SetLastError(ERROR_IO_DEVICE);
            return FALSE;
        }
        return Fake<&GetFileInformationByHandleEx>::Real(handle, kind, answer, size);
    };
    EXPECT_EQ(Remove(L"tree"), HRESULT_FROM_WIN32(ERROR_IO_DEVICE));
    EXPECT_EQ(failures.Last().message, Extended(folder / L"tree\\sub"));
    EXPECT_TRUE(Exists(folder / L"tree\\sub\\file"));
}

TEST_F(RemoveDirectoryTest, holds_every_directory_in_its_place_while_it_empties_it)
{
    folder.AddFile(L"tree\\sub\\file");
    int files = 0;
    const Fake<&DeleteFileW> remove = [&](const wchar_t* path) {
        ++files;
        for (const wchar_t* const name : {L"tree", L"tree\\sub"})
        {
            EXPECT_FALSE(MoveFileW((folder / name).c_str(), (folder / L"moved").c_str()));
        }
        return Fake<&DeleteFileW>::Real(path);
    };
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_EQ(files, 1);
}

TEST_F(RemoveDirectoryTest, deletes_a_directory_at_once_where_the_system_can)
{
    folder.AddFolder(L"tree");
    std::vector<FILE_INFO_BY_HANDLE_CLASS> kinds;
    DWORD flags = 0;
    const Fake<&SetFileInformationByHandle> change = [&](HANDLE, FILE_INFO_BY_HANDLE_CLASS kind, void* data,
                                                         DWORD size) {
        kinds.push_back(kind);
        EXPECT_EQ(size, sizeof(flags));
        flags = *static_cast<DWORD*>(data);
        return TRUE;
    };
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_THAT(kinds, testing::ElementsAre(static_cast<FILE_INFO_BY_HANDLE_CLASS>(21)));
    EXPECT_EQ(flags, 3U);
}

TEST_F(RemoveDirectoryTest, does_not_try_to_delete_a_directory_twice_when_access_is_denied)
{
    folder.AddFolder(L"tree");
    int calls = 0;
    const Fake<&SetFileInformationByHandle> change = [&](HANDLE, FILE_INFO_BY_HANDLE_CLASS, void*, DWORD) {
        ++calls;
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    };
    EXPECT_EQ(Remove(L"tree"), E_ACCESSDENIED);
    EXPECT_EQ(calls, 1);
}

TEST_F(RemoveDirectoryTest, refuses_a_link_as_its_root)
{
    folder.AddFile(L"target\\precious");
    ASSERT_TRUE(CreateDirectoryLink(folder / L"link", folder / L"target"));
    for (const wchar_t* const name : {L"link", L"link\\", L"link//"})
    {
        EXPECT_EQ(Remove(name), c_isLink);
    }
    {
        const LinksAsOnWindows links;
        EXPECT_EQ(Remove(L"link"), c_isLink);
    }
    EXPECT_TRUE(Exists(folder / L"link"));
    EXPECT_TRUE(Exists(folder / L"target\\precious"));
    EXPECT_TRUE(RemoveDirectoryLink(folder / L"link"));
}

TEST_F(RemoveDirectoryTest, removes_a_link_inside_the_tree_without_entering_it)
{
    folder.AddFile(L"target\\precious");
    folder.AddFile(L"tree\\sub\\file");
    ASSERT_TRUE(CreateDirectoryLink(folder / L"tree\\sub\\link", folder / L"target"));
    {
        const LinksAsOnWindows links;
        EXPECT_EQ(Remove(L"tree"), S_OK);
    }
    EXPECT_FALSE(Exists(folder / L"tree"));
    EXPECT_TRUE(Exists(folder / L"target\\precious"));
}

TEST_F(RemoveDirectoryTest, leaves_what_is_listed_as_a_link_but_opens_as_a_directory)
{
    // So it is under Wine, which opens the target; on Windows somebody would have to exchange it at that moment.
    folder.AddFolder(L"target");
    folder.AddFile(L"tree\\file");
    ASSERT_TRUE(CreateDirectoryLink(folder / L"tree\\link", folder / L"target"));
    if (!CanRemoveDirectoryLinks())
    {
        EXPECT_EQ(Remove(L"tree"), c_isLink);
        EXPECT_FALSE(Exists(folder / L"tree\\file"));
        EXPECT_TRUE(Exists(folder / L"target"));
        EXPECT_TRUE(Exists(folder / L"tree\\link"));
    }
    EXPECT_TRUE(RemoveDirectoryLink(folder / L"tree\\link"));
}

TEST_F(RemoveDirectoryTest, does_not_enter_a_directory_that_became_a_link_after_it_was_listed)
{
    folder.AddFile(L"tree\\sub\\precious");
    int deletions = 0;
    const Fake<&GetFileInformationByHandleEx> inform = [](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, void* answer,
                                                          DWORD size) {
        static int opened = 0;
        const BOOL result = Fake<&GetFileInformationByHandleEx>::Real(handle, kind, answer, size);
        if (kind == FileAttributeTagInfo && ++opened == 2)
        {
            *static_cast<FILE_ATTRIBUTE_TAG_INFO*>(answer) = {FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT,
                                                              0xA0000003};
        }
        return result;
    };
    const Fake<&SetFileInformationByHandle> change = [&](HANDLE, FILE_INFO_BY_HANDLE_CLASS, void*, DWORD) {
        ++deletions;
        return TRUE;
    };
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_EQ(deletions, 2);
    EXPECT_TRUE(Exists(folder / L"tree\\sub\\precious"));
}
