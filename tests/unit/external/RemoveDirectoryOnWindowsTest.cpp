#include "DirectoriesAsOnWindows.h"
#include "RecordedFailures.h"
#include "support/ImportTableFake.h"
#include "support/TestFolder.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <wil/filesystem.h>

#include <cstddef>
#include <cstring>
#include <ios>
#include <iterator>
#include <string>

using namespace Testing;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using wil::RemoveDirectoryRecursiveNoThrow;

// How trees are removed that Wine does not have: what their directories are is told by a fake that answers as Windows
// does.

namespace
{

constexpr HRESULT c_isLink = HRESULT_FROM_WIN32(ERROR_REPARSE_POINT_ENCOUNTERED);
constexpr DWORD c_junction = 0xA0000003;
constexpr ACCESS_MASK c_deletion = DELETE | SYNCHRONIZE;

// Directories that are no links: a cloud store's (three generations), a projected one, two of a container's layers, a
// tiered one, one of another maker's.
constexpr DWORD c_places[] = {0x80000021, 0x9000001A, 0x9000601A, 0x9000001C, 0x80000018, 0x90001018, 0xC0000004, 0x42};
// Names for another place: a junction, two kinds of symbolic link, a reparse point for all silos, one of another
// maker's, one that claims to have contents of its own.
constexpr DWORD c_surrogates[] = {c_junction, 0xA000000C, 0xA000001D, 0xA0000019, 0x20000042, 0xB0000003};

class RemoveDirectoryOnWindows : public testing::Test
{
protected:
    HRESULT Remove(const std::wstring& name) { return RemoveDirectoryRecursiveNoThrow((folder / name).c_str()); }

    // An empty directory that is a reparse point; returns its path.
    std::wstring AddReparsePoint(const std::wstring& name, DWORD tag, const std::wstring& target = {})
    {
        const std::wstring path = folder.AddFolder(name);
        directories.MakeReparsePoint(path, tag, target);
        return path;
    }

    TestFolder folder;
    DirectoriesAsOnWindows directories;
    RecordedFailures failures;
};

using RemoveReparsePoint = RemoveDirectoryOnWindows;
using RemoveFromFatDrive = RemoveDirectoryOnWindows;
using RemoveWithFewRights = RemoveDirectoryOnWindows;
using RemoveVolumeMountPoint = RemoveDirectoryOnWindows;

constexpr wchar_t c_volume[] = L"\\??\\Volume{11111111-2222-3333-4444-555555555555}\\";

} // namespace

TEST_F(RemoveReparsePoint, enters_a_directory_that_is_no_link)
{
    for (const DWORD tag : c_places)
    {
        folder.AddFile(L"tree\\place\\sub\\file");
        directories.MakeReparsePoint(folder / L"tree\\place", tag);
        EXPECT_EQ(Remove(L"tree"), S_OK) << std::hex << tag;
        EXPECT_FALSE(Exists(folder / L"tree")) << std::hex << tag;
    }
}

TEST_F(RemoveReparsePoint, takes_a_directory_that_is_no_link_as_its_root)
{
    for (const DWORD tag : c_places)
    {
        folder.AddFile(L"tree\\sub\\file");
        directories.MakeReparsePoint(folder / L"tree", tag);
        EXPECT_EQ(Remove(L"tree"), S_OK) << std::hex << tag;
        EXPECT_FALSE(Exists(folder / L"tree")) << std::hex << tag;
    }
}

TEST_F(RemoveReparsePoint, removes_a_name_surrogate_and_never_enters_it)
{
    for (const DWORD tag : c_surrogates)
    {
        const std::wstring link = AddReparsePoint(L"tree\\link", tag);
        EXPECT_EQ(Remove(L"tree"), S_OK) << std::hex << tag;
        EXPECT_FALSE(Exists(folder / L"tree")) << std::hex << tag;
        EXPECT_THAT(directories.Listed(), Not(Contains(link))) << std::hex << tag;
    }
}

TEST_F(RemoveReparsePoint, refuses_a_name_surrogate_as_its_root)
{
    for (const DWORD tag : c_surrogates)
    {
        AddReparsePoint(L"link", tag);
        EXPECT_EQ(Remove(L"link"), c_isLink) << std::hex << tag;
        EXPECT_TRUE(Exists(folder / L"link")) << std::hex << tag;
    }
    EXPECT_THAT(directories.Listed(), IsEmpty());
}

TEST_F(RemoveReparsePoint, refuses_a_root_that_is_a_link_by_its_handle_or_by_its_path_alone)
{
    folder.AddFile(L"target\\precious");
    directories.HideReparsePointOfOpened(folder / L"target");
    directories.MakeReparsePoint(folder / L"target", c_junction);
    EXPECT_EQ(Remove(L"target"), c_isLink);

    AddReparsePoint(L"link", c_junction);
    const Fake<&GetFileAttributesW> attributes = [](const wchar_t*) { return DWORD{FILE_ATTRIBUTE_DIRECTORY}; };
    EXPECT_EQ(Remove(L"link"), c_isLink);
    EXPECT_THAT(directories.Listed(), IsEmpty());
}

TEST_F(RemoveReparsePoint, leaves_what_is_listed_as_a_link_but_opens_as_a_directory)
{
    folder.AddFile(L"tree\\link\\precious");
    const std::wstring link = AddReparsePoint(L"tree\\link", c_junction);
    directories.HideReparsePointOfOpened(link);
    EXPECT_EQ(Remove(L"tree"), c_isLink);
    EXPECT_TRUE(Exists(link + L"\\precious"));
    EXPECT_THAT(directories.Listed(), ElementsAre(folder / L"tree"));
}

TEST_F(RemoveReparsePoint, enters_a_place_whose_reparse_point_is_hidden_from_who_opens_it)
{
    folder.AddFile(L"tree\\place\\file");
    directories.HideReparsePointOfOpened(AddReparsePoint(L"tree\\place", 0x9000001A));
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST_F(RemoveFromFatDrive, removes_a_tree_there_as_anywhere)
{
    directories.isFat = true;
    folder.AddFile(L"tree\\file");
    folder.AddFile(L"tree\\sub\\deeper\\file");
    folder.AddFolder(L"tree\\empty");
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST_F(RemoveFromFatDrive, refuses_a_file_there_too)
{
    directories.isFat = true;
    folder.AddFile(L"file");
    EXPECT_EQ(Remove(L"file"), HRESULT_FROM_WIN32(ERROR_DIRECTORY));
    EXPECT_TRUE(Exists(folder / L"file"));
}

TEST_F(RemoveFromFatDrive, does_not_enter_a_reparse_point_whose_kind_a_file_system_does_not_tell)
{
    directories.isFat = true;
    folder.AddFile(L"tree\\odd\\precious");
    const std::wstring odd = AddReparsePoint(L"tree\\odd", 0);
    AddReparsePoint(L"tree\\empty", 0);
    EXPECT_EQ(Remove(L"tree"), HRESULT_FROM_WIN32(ERROR_DIR_NOT_EMPTY));
    EXPECT_TRUE(Exists(odd + L"\\precious"));
    EXPECT_FALSE(Exists(folder / L"tree\\empty"));
    EXPECT_THAT(directories.Listed(), ElementsAre(folder / L"tree"));
    EXPECT_EQ(Remove(L"tree\\odd"), c_isLink);
}

TEST_F(RemoveFromFatDrive, takes_no_other_error_for_a_drive_without_tags)
{
    folder.AddFile(L"tree\\file");
    const Fake<&GetFileInformationByHandleEx> inform = [](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, void* answer,
                                                          DWORD size) -> BOOL {
        SetLastError(ERROR_ACCESS_DENIED);
        return kind != FileAttributeTagInfo && Fake<&GetFileInformationByHandleEx>::Real(handle, kind, answer, size);
    };
    EXPECT_EQ(Remove(L"tree"), E_ACCESSDENIED);
    EXPECT_TRUE(Exists(folder / L"tree\\file"));
}

TEST_F(RemoveFromFatDrive, tells_why_the_attributes_cannot_be_read_there)
{
    folder.AddFile(L"tree\\file");
    const Fake<&GetFileInformationByHandleEx> inform = [](HANDLE, FILE_INFO_BY_HANDLE_CLASS kind, void*, DWORD) {
        SetLastError(kind == FileBasicInfo ? ERROR_IO_DEVICE : ERROR_INVALID_PARAMETER);
        return FALSE;
    };
    EXPECT_EQ(Remove(L"tree"), HRESULT_FROM_WIN32(ERROR_IO_DEVICE));
    EXPECT_TRUE(Exists(folder / L"tree\\file"));
}

TEST_F(RemoveWithFewRights, deletes_a_link_that_grants_nothing_but_its_deletion)
{
    folder.AddFile(L"tree\\file");
    const std::wstring link = AddReparsePoint(L"tree\\link", c_junction, L"\\??\\C:\\elsewhere");
    directories.Grant(link, c_deletion);
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
    EXPECT_THAT(directories.Listed(), Not(Contains(link)));
}

TEST_F(RemoveWithFewRights, deletes_an_empty_directory_that_grants_nothing_but_its_deletion)
{
    directories.Grant(folder.AddFolder(L"tree\\closed"), c_deletion);
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST_F(RemoveWithFewRights, deletes_an_empty_root_that_grants_nothing_but_its_deletion)
{
    directories.Grant(folder.AddFolder(L"tree"), c_deletion);
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST_F(RemoveWithFewRights, tells_that_a_directory_could_not_be_listed_when_it_is_not_empty)
{
    folder.AddFile(L"tree\\closed\\file");
    folder.AddFile(L"tree\\file");
    directories.Grant(folder / L"tree\\closed", c_deletion);
    EXPECT_EQ(Remove(L"tree"), E_ACCESSDENIED);
    EXPECT_TRUE(Exists(folder / L"tree\\closed\\file"));
    EXPECT_FALSE(Exists(folder / L"tree\\file"));
    ASSERT_EQ(failures.Count(), 1U);
    EXPECT_EQ(failures.Last().message, L"\\\\?\\" + (folder / L"tree\\closed"));
}

TEST_F(RemoveWithFewRights, tells_that_a_root_could_not_be_listed_when_it_is_not_empty)
{
    folder.AddFile(L"tree\\file");
    directories.Grant(folder / L"tree", c_deletion);
    EXPECT_EQ(Remove(L"tree"), E_ACCESSDENIED);
    EXPECT_TRUE(Exists(folder / L"tree\\file"));
    EXPECT_EQ(failures.Count(), 1U);
}

TEST_F(RemoveWithFewRights, refuses_a_link_as_its_root_that_grants_nothing_but_its_deletion)
{
    directories.Grant(AddReparsePoint(L"link", c_junction, L"\\??\\C:\\elsewhere"), c_deletion);
    EXPECT_EQ(Remove(L"link"), c_isLink);
    EXPECT_TRUE(Exists(folder / L"link"));
}

TEST_F(RemoveWithFewRights, empties_a_directory_that_lets_itself_be_listed_and_deleted_and_nothing_else)
{
    folder.AddFile(L"tree\\sub\\file");
    directories.Grant(folder / L"tree", FILE_LIST_DIRECTORY | c_deletion);
    directories.Grant(folder / L"tree\\sub", FILE_LIST_DIRECTORY | c_deletion);
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST_F(RemoveWithFewRights, empties_a_directory_that_must_not_be_deleted)
{
    folder.AddFile(L"tree\\kept\\file");
    directories.Grant(folder / L"tree\\kept", FILE_GENERIC_READ);
    EXPECT_EQ(Remove(L"tree"), E_ACCESSDENIED);
    EXPECT_TRUE(Exists(folder / L"tree\\kept"));
    EXPECT_FALSE(Exists(folder / L"tree\\kept\\file"));
    EXPECT_EQ(failures.Count(), 1U);
}

TEST_F(RemoveWithFewRights, tells_that_a_directory_is_in_use_when_its_contents_cannot_be_seen_for_that)
{
    folder.AddFile(L"tree\\held\\file");
    {
        const wil::unique_hfile holder(CreateFileW((folder / L"tree\\held").c_str(), GENERIC_READ, FILE_SHARE_DELETE,
                                                   nullptr, OPEN_EXISTING,
                                                   FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
        ASSERT_TRUE(holder);
        EXPECT_EQ(Remove(L"tree"), HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION));
        EXPECT_TRUE(Exists(folder / L"tree\\held\\file"));
    }
    EXPECT_EQ(Remove(L"tree"), S_OK);
}

TEST_F(RemoveWithFewRights, deletes_an_empty_directory_that_others_have_open_and_share)
{
    for (const DWORD access : {DWORD{DELETE}, DWORD{FILE_ADD_FILE | FILE_LIST_DIRECTORY | DELETE}})
    {
        folder.AddFolder(L"tree\\shared");
        {
            const wil::unique_hfile holder(CreateFileW(
                (folder / L"tree\\shared").c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
            ASSERT_TRUE(holder);
            // Without POSIX semantics it goes with the last handle, and the tree at the next try.
            Remove(L"tree");
        }
        EXPECT_FALSE(Exists(folder / L"tree\\shared")) << access;
    }
}

TEST_F(RemoveWithFewRights, tells_why_a_directory_that_cannot_be_listed_cannot_be_deleted)
{
    directories.Grant(folder.AddFolder(L"tree\\closed"), c_deletion);
    const Fake<&SetFileInformationByHandle> change = [](HANDLE, FILE_INFO_BY_HANDLE_CLASS, void*, DWORD) {
        SetLastError(ERROR_IO_DEVICE);
        return FALSE;
    };
    EXPECT_EQ(Remove(L"tree"), HRESULT_FROM_WIN32(ERROR_IO_DEVICE));
}

TEST_F(RemoveVolumeMountPoint, takes_it_from_its_volume_as_RemoveDirectory_does)
{
    const std::wstring mountPoint = AddReparsePoint(L"tree\\sub\\volume", c_junction, c_volume);
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
    EXPECT_THAT(directories.Unmounted(), ElementsAre(mountPoint));
    EXPECT_THAT(directories.Listed(), Not(Contains(mountPoint)));
}

TEST_F(RemoveVolumeMountPoint, leaves_it_alone_as_the_root)
{
    AddReparsePoint(L"volume", c_junction, c_volume);
    EXPECT_EQ(Remove(L"volume"), c_isLink);
    EXPECT_TRUE(Exists(folder / L"volume"));
    EXPECT_THAT(directories.Unmounted(), IsEmpty());
}

TEST_F(RemoveVolumeMountPoint, deletes_every_other_link_through_its_handle)
{
    const Fake<&RemoveDirectoryW> remove = [](const wchar_t* path) {
        ADD_FAILURE() << testing::PrintToString(std::wstring(path));
        return FALSE;
    };
    AddReparsePoint(L"tree\\folder", c_junction, L"\\??\\C:\\elsewhere\\");
    AddReparsePoint(L"tree\\folder of a volume", c_junction, std::wstring(c_volume) + L"elsewhere");
    AddReparsePoint(L"tree\\brace", c_junction, L"\\??\\C:\\Volume{}\\");
    AddReparsePoint(L"tree\\nowhere", c_junction);
    // Where its target would lie are other things in a symbolic link.
    AddReparsePoint(L"tree\\symbolic link", 0xA000000C, c_volume);
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST_F(RemoveVolumeMountPoint, tells_why_it_cannot_be_removed)
{
    AddReparsePoint(L"tree\\volume", c_junction, c_volume);
    const Fake<&RemoveDirectoryW> remove = [](const wchar_t*) {
        SetLastError(ERROR_BUSY);
        return FALSE;
    };
    EXPECT_EQ(Remove(L"tree"), HRESULT_FROM_WIN32(ERROR_BUSY));
    EXPECT_TRUE(Exists(folder / L"tree\\volume"));
    ASSERT_EQ(failures.Count(), 1U);
    EXPECT_EQ(failures.Last().message, L"\\\\?\\" + (folder / L"tree\\volume"));
}

TEST_F(RemoveVolumeMountPoint, takes_one_that_somebody_else_removed_meanwhile_as_removed)
{
    AddReparsePoint(L"tree\\volume", c_junction, c_volume);
    const Fake<&RemoveDirectoryW> remove = [](const wchar_t* path) {
        EXPECT_TRUE(Fake<&RemoveDirectoryW>::Real(path));
        SetLastError(ERROR_FILE_NOT_FOUND);
        return FALSE;
    };
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
}

TEST_F(RemoveVolumeMountPoint, leaves_a_directory_that_was_put_in_its_place)
{
    const std::wstring mountPoint = AddReparsePoint(L"tree\\volume", c_junction, c_volume);
    const Fake<&RemoveDirectoryW> remove = [&](const wchar_t* path) {
        folder.AddFile(L"tree\\volume\\precious");
        return Fake<&RemoveDirectoryW>::Real(path);
    };
    EXPECT_EQ(Remove(L"tree"), HRESULT_FROM_WIN32(ERROR_DIR_NOT_EMPTY));
    EXPECT_TRUE(Exists(mountPoint + L"\\precious"));
}

TEST_F(RemoveVolumeMountPoint, is_deleted_as_any_link_when_its_target_cannot_be_read)
{
    AddReparsePoint(L"tree\\volume", c_junction, c_volume);
    const Fake<&DeviceIoControl> control = [](HANDLE, DWORD, void*, DWORD, void*, DWORD, DWORD*, OVERLAPPED*) {
        SetLastError(ERROR_INVALID_FUNCTION);
        return FALSE;
    };
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_FALSE(Exists(folder / L"tree"));
    EXPECT_THAT(directories.Unmounted(), IsEmpty());
}

TEST_F(RemoveVolumeMountPoint, is_not_tried_when_it_may_not_be_deleted)
{
    const std::wstring mountPoint = AddReparsePoint(L"tree\\volume", c_junction, c_volume);
    directories.Grant(mountPoint, FILE_GENERIC_READ);
    const Fake<&RemoveDirectoryW> remove = [](const wchar_t*) {
        ADD_FAILURE() << "it is removed";
        return FALSE;
    };
    EXPECT_EQ(Remove(L"tree"), E_ACCESSDENIED);
    EXPECT_TRUE(Exists(mountPoint));
}

TEST_F(RemoveVolumeMountPoint, goes_when_it_grants_nothing_but_its_deletion)
{
    const std::wstring mountPoint = AddReparsePoint(L"tree\\volume", c_junction, c_volume);
    directories.Grant(mountPoint, c_deletion);
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_THAT(directories.Unmounted(), ElementsAre(mountPoint));
}

TEST_F(RemoveVolumeMountPoint, is_told_by_no_more_than_the_data_that_was_read)
{
    constexpr WORD c_nameBytes = sizeof(c_volume) - sizeof(wchar_t);
    constexpr WORD c_offset = 6;
    constexpr WORD c_header[] = {0x0003, 0xA000, 0, 0, c_offset, c_nameBytes, 0, 0};
    constexpr DWORD c_total = sizeof(c_header) + c_offset + c_nameBytes;
    DWORD told = 0;
    // What a name of all those bytes would hold is there, from another call.
    const Fake<&DeviceIoControl> control = [&](HANDLE, DWORD, void*, DWORD, void* answer, DWORD size, DWORD* returned,
                                               OVERLAPPED*) -> BOOL {
        auto* const bytes = static_cast<std::byte*>(answer);
        std::memset(answer, 0, size);
        std::memcpy(answer, c_header, sizeof(c_header));
        std::memcpy(bytes + sizeof(c_header) + c_offset, c_volume, c_nameBytes);
        *returned = told;
        return TRUE;
    };
    for (const DWORD bytes : {c_total - 1, DWORD{sizeof(c_header)}, DWORD{0}})
    {
        told = bytes;
        AddReparsePoint(L"tree\\volume", c_junction, c_volume);
        EXPECT_EQ(Remove(L"tree"), S_OK) << bytes;
        EXPECT_THAT(directories.Unmounted(), IsEmpty()) << bytes;
    }
    told = c_total;
    AddReparsePoint(L"tree\\volume", c_junction, c_volume);
    EXPECT_EQ(Remove(L"tree"), S_OK);
    EXPECT_THAT(directories.Unmounted(), ElementsAre(folder / L"tree\\volume"));
}
