#include "support/common/DirectoryLink.h"
#include "support/common/ImportTableFake.h"
#include "support/common/Text.h"
#include "support/unit/FakeFileSystem.h"
#include "support/unit/FolderAttacks.h"
#include "support/unit/Handles.h"
#include "support/unit/Journal.h"
#include "support/unit/RecordedFailures.h"
#include "support/unit/TestFolder.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <wil/filesystem.h>
#include <wil/resource.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using namespace Testing;
using testing::ElementsAre;
using testing::IsEmpty;
using wil::RemoveDirectoryRecursiveNoThrow;

namespace
{

constexpr HRESULT c_isLink = HRESULT_FROM_WIN32(ERROR_REPARSE_POINT_ENCOUNTERED);
constexpr HRESULT c_inUse = HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION);
constexpr DWORD c_junction = 0xA0000003;
constexpr DWORD c_shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr ACCESS_MASK c_deletion = DELETE | SYNCHRONIZE;
constexpr wchar_t c_volume[] = L"\\??\\Volume{11111111-2222-3333-4444-555555555555}\\";

// Directories that are no links: a cloud store's (three generations), a projected one, two of a container's layers, a
// tiered one, one of another maker's.
constexpr DWORD c_places[] = {0x80000021, 0x9000001A, 0x9000601A, 0x9000001C, 0x80000018, 0x90001018, 0xC0000004, 0x42};
// Names for another place: a junction, two kinds of symbolic link, a reparse point for all silos, one of another
// maker's, one that claims to have contents of its own.
constexpr DWORD c_surrogates[] = {c_junction, 0xA000000C, 0xA000001D, 0xA0000019, 0x20000042, 0xB0000003};

// Trees in memory.
class RemoveDirectoryTest : public testing::Test
{
protected:
    static HRESULT Remove(const wchar_t* path = L"C:\\tree") { return RemoveDirectoryRecursiveNoThrow(path); }

    void ExpectRemoved(const wchar_t* path = L"C:\\tree")
    {
        EXPECT_EQ(Remove(path), S_OK);
        EXPECT_FALSE(files.Has(path));
        EXPECT_EQ(failures.Count(), 0U);
    }

    // Shows that one thing failed, which is recorded with its path.
    void ExpectFailure(HRESULT result, const std::wstring& path)
    {
        const std::size_t before = failures.Count();
        EXPECT_EQ(Remove(), result);
        ASSERT_EQ(failures.Count(), before + 1);
        EXPECT_EQ(failures.Last().hr, result);
        EXPECT_EQ(failures.Last().message, L"\\\\?\\" + path);
        EXPECT_TRUE(files.Has(path));
    }

    std::size_t CountCalls(const std::string& function) const { return journal.CallsOf({function}).size(); }

    bool WasListed(const std::string& path) const
    {
        return std::ranges::count(journal.All(), "GetFileInformationByHandleEx(" + path + ", 15)") != 0;
    }

    static std::string Opening(const std::string& folder, const std::string& name)
    {
        return "NtOpenFile(" + folder + ", \"" + name + "\")";
    }

    // Somebody else's handle.
    static wil::unique_hfile Open(const wchar_t* path, DWORD access, DWORD share)
    {
        wil::unique_hfile file(CreateFileW(path, access, share, nullptr, OPEN_EXISTING,
                                           FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
        EXPECT_TRUE(file);
        return file;
    }

    // Does something once, just before a call.
    void Before(const std::string& call, const std::function<void()>& action)
    {
        journal.onCall = [call, action, isDone = false](const std::string& made) mutable {
            if (made == call && !std::exchange(isDone, true))
            {
                action();
            }
        };
    }

    Journal journal;
    Handles handles{journal};
    FakeFileSystem files{journal, handles};
    RecordedFailures failures;
};

using RemoveReparsePointTest = RemoveDirectoryTest;
using RemoveFromFatDriveTest = RemoveDirectoryTest;
using RemoveWithFewRightsTest = RemoveDirectoryTest;
using RemoveVolumeMountPointTest = RemoveDirectoryTest;

} // namespace

TEST_F(RemoveDirectoryTest, Removes_a_tree_with_its_root_and_opens_and_deletes_everything_once)
{
    for (const wchar_t* const file : {L"C:\\tree\\a", L"C:\\tree\\sub\\b", L"C:\\tree\\sub\\deeper\\c", L"C:\\beside"})
    {
        files.AddFile(file);
    }
    files.AddFolder(L"C:\\tree\\empty\\sub");
    ExpectRemoved();
    EXPECT_TRUE(files.Has(L"C:\\beside"));
    constexpr std::size_t c_files = 3;
    constexpr std::size_t c_directories = 5;
    EXPECT_EQ(CountCalls("CreateFileW"), 1U);
    EXPECT_EQ(CountCalls("NtOpenFile"), c_files + c_directories - 1);
    EXPECT_EQ(CountCalls("SetFileInformationByHandle"), c_files + c_directories);
    // Of each directory its attributes, its entries and that there are no more; of the root what its path is seen as.
    EXPECT_EQ(CountCalls("GetFileInformationByHandleEx"), c_directories * 3);
    EXPECT_EQ(CountCalls("GetFileAttributesW"), 1U);
}

TEST_F(RemoveDirectoryTest, Opens_the_root_by_its_extended_path)
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
    const Fake<&CreateFileW> create = [&](const wchar_t* path, auto...) {
        opened = path;
        SetLastError(ERROR_BAD_NETPATH);
        return INVALID_HANDLE_VALUE;
    };
    const std::wstring longName(300, L'x');
    // A path that is extended already is taken as it is, but for the separators after the directory's name. With
    // forward slashes in its prefix it is none.
    const std::pair<std::wstring, std::vector<std::wstring>> paths[] = {
        {LR"(\\?\C:\)", {LR"(C:\)", LR"(\\?\C:\)", L"//?/C:/"}},
        {LR"(\\?\C:\a)", {LR"(\\.\C:\a)", L"//./C:/a", LR"(\\?/C:/a)", LR"(/\?\C:\a)"}},
        {LR"(\\?\C:\a\b)", {LR"(C:\a\b)", L"C:/a//b//", L"//?/C:/a//b/"}},
        {LR"(\\?\C:\a\\b)", {LR"(\\?\C:\a\\b)"}},
        {LR"(\\?\C:\a. )", {LR"(\\?\C:\a. \)"}},
        {LR"(\\?\C:\)" + longName, {LR"(C:\)" + longName, L"//?/C:/" + longName}},
        {LR"(\\?\Volume{1}\)", {LR"(\\?\Volume{1}\)", LR"(\\?\Volume{1}\\)", L"//?/Volume{1}/"}},
        {LR"(\\?\Volume{1}\a)", {LR"(\\?\Volume{1}\a\)", LR"(\\.\Volume{1}\a)"}},
        {LR"(\\?\UNC\server\share\)", {LR"(\\server\share\)", LR"(\\?\UNC\server\share\)"}},
        {LR"(\\?\UNC\server\share\a)",
         {LR"(\\server\share\a\)", L"//server/share/a/", LR"(\\?\UNC\server\share\a\)", L"//?/UNC/server/share/a/"}},
        {LR"(\\?\unc\server\share\)", {LR"(\\?\unc\server\share\)"}},
        {LR"(\\?\unc\server\share\a)", {LR"(\\?\unc\server\share\a\)"}},
    };
    for (const auto& [extended, forms] : paths)
    {
        for (const std::wstring& path : forms)
        {
            EXPECT_EQ(Remove(path.c_str()), HRESULT_FROM_WIN32(ERROR_BAD_NETPATH));
            EXPECT_EQ(opened, extended) << testing::PrintToString(path);
        }
    }
}

TEST_F(RemoveDirectoryTest, Tells_what_is_no_directory)
{
    files.AddFile(L"C:\\file");
    for (const bool isFat : {false, true})
    {
        files.isFat = isFat;
        EXPECT_EQ(Remove(L"C:\\file"), HRESULT_FROM_WIN32(ERROR_DIRECTORY));
        EXPECT_TRUE(files.Has(L"C:\\file"));
    }
    EXPECT_LT(Remove(L""), 0);
}

TEST_F(RemoveDirectoryTest, Removes_a_directory_that_takes_many_listings)
{
    for (int i = 0; i < 700; ++i)
    {
        files.AddFile(L"C:\\tree\\a file whose name is long enough to fill the listing soon " + std::to_wstring(i));
    }
    ExpectRemoved();
}

TEST_F(RemoveDirectoryTest, Goes_on_after_a_failure_and_leaves_the_directories_above_it)
{
    files.AddFile(L"C:\\tree\\b\\read-only", "content", FILE_ATTRIBUTE_READONLY);
    for (const wchar_t* const file : {L"C:\\tree\\a\\file", L"C:\\tree\\b\\file", L"C:\\tree\\b\\sub\\file",
                                      L"C:\\tree\\c\\file", L"C:\\tree\\file"})
    {
        files.AddFile(file);
    }
    ExpectFailure(E_ACCESSDENIED, L"C:\\tree\\b\\read-only");
    EXPECT_EQ(files.All().size(), 4U) << "the drive, tree, b and the file";
}

TEST_F(RemoveDirectoryTest, Records_every_failure_and_returns_the_first_one)
{
    files.AddFile(L"C:\\tree\\file");
    files.AddFile(L"C:\\tree\\sub\\file");
    journal.Fail(Opening("C:\\tree", "file"), ERROR_SHARING_VIOLATION);
    journal.Fail(Opening("C:\\tree\\sub", "file"), ERROR_ACCESS_DENIED);
    EXPECT_EQ(Remove(), c_inUse);
    ASSERT_EQ(failures.Count(), 2U);
    EXPECT_EQ(failures.All()[0].message, L"\\\\?\\C:\\tree\\file");
    EXPECT_EQ(failures.All()[1].hr, E_ACCESSDENIED);
}

TEST_F(RemoveDirectoryTest, Removes_at_once_what_others_have_open_and_share)
{
    files.AddFile(L"C:\\tree\\file");
    files.AddFolder(L"C:\\tree\\sub");
    const auto file = Open(L"C:\\tree\\file", GENERIC_READ | GENERIC_WRITE | DELETE, c_shareAll);
    const auto folder = Open(L"C:\\tree\\sub", FILE_ADD_FILE | FILE_LIST_DIRECTORY | DELETE, c_shareAll);
    ExpectRemoved();
}

TEST_F(RemoveDirectoryTest, Tells_that_a_directory_is_in_use_and_empties_it_if_its_contents_can_be_seen)
{
    for (const DWORD share : {DWORD{FILE_SHARE_READ}, DWORD{FILE_SHARE_DELETE}})
    {
        files.AddFile(L"C:\\tree\\held\\file");
        {
            const auto holder = Open(L"C:\\tree\\held", GENERIC_READ, share);
            ExpectFailure(c_inUse, L"C:\\tree\\held");
            EXPECT_EQ(files.Has(L"C:\\tree\\held\\file"), share == FILE_SHARE_DELETE);
        }
        EXPECT_EQ(Remove(), S_OK);
    }
}

TEST_F(RemoveDirectoryTest, Leaves_a_directory_that_cannot_be_opened_at_all_and_tells_the_first_of_the_reasons)
{
    files.AddFile(L"C:\\tree\\file");
    files.AddFile(L"C:\\tree\\closed\\file");
    journal.Fail(Opening("C:\\tree", "closed"), ERROR_INVALID_HANDLE);
    journal.onCall = [&](const std::string& call) {
        if (call == Opening("C:\\tree", "closed") && std::ranges::count(journal.All(), call) == 1)
        {
            files.Grant(L"C:\\tree\\closed", 0);
            journal.Fail(call, ERROR_ACCESS_DENIED, 1);
        }
    };
    ExpectFailure(E_ACCESSDENIED, L"C:\\tree\\closed");
    EXPECT_TRUE(files.Has(L"C:\\tree\\closed\\file"));
    EXPECT_FALSE(files.Has(L"C:\\tree\\file"));
}

TEST_F(RemoveDirectoryTest, Takes_what_somebody_else_removed_meanwhile_as_removed)
{
    files.AddFile(L"C:\\tree\\file");
    files.AddFolder(L"C:\\tree\\sub");
    Before(Opening("C:\\tree", "file"), [&] {
        EXPECT_TRUE(files.Delete(L"C:\\tree\\file"));
        EXPECT_TRUE(files.Delete(L"C:\\tree\\sub"));
    });
    ExpectRemoved();
}

TEST_F(RemoveDirectoryTest, Leaves_a_directory_where_a_file_was_and_a_file_where_a_directory_was)
{
    files.AddFile(L"C:\\tree\\file");
    files.AddFolder(L"C:\\tree\\sub");
    Before(Opening("C:\\tree", "file"), [&] {
        EXPECT_TRUE(files.Delete(L"C:\\tree\\file") && files.Delete(L"C:\\tree\\sub"));
        files.AddFolder(L"C:\\tree\\file");
        files.AddFile(L"C:\\tree\\sub");
    });
    EXPECT_EQ(Remove(), E_ACCESSDENIED);
    ASSERT_EQ(failures.Count(), 2U);
    EXPECT_EQ(failures.Last().hr, HRESULT_FROM_WIN32(ERROR_DIRECTORY));
    EXPECT_TRUE(files.Has(L"C:\\tree\\file"));
    EXPECT_TRUE(files.Has(L"C:\\tree\\sub"));
}

TEST_F(RemoveDirectoryTest, Tells_when_a_directory_cannot_be_listed)
{
    files.AddFile(L"C:\\tree\\sub\\file");
    journal.Fail("GetFileInformationByHandleEx(C:\\tree\\sub, 15)", ERROR_IO_DEVICE);
    ExpectFailure(HRESULT_FROM_WIN32(ERROR_IO_DEVICE), L"C:\\tree\\sub");
}

TEST_F(RemoveDirectoryTest, Holds_every_directory_in_its_place_while_it_empties_it)
{
    files.AddFile(L"C:\\tree\\sub\\file");
    int tries = 0;
    Before(Opening("C:\\tree\\sub", "file"), [&] {
        for (const wchar_t* const held : {L"C:\\tree", L"C:\\tree\\sub"})
        {
            ++tries;
            EXPECT_FALSE(files.Rename(held, L"C:\\moved"));
        }
    });
    ExpectRemoved();
    EXPECT_EQ(tries, 2);
}

TEST_F(RemoveDirectoryTest, Does_not_try_to_delete_something_twice_when_access_is_denied)
{
    files.AddFolder(L"C:\\tree");
    journal.Fail("SetFileInformationByHandle");
    ExpectFailure(E_ACCESSDENIED, L"C:\\tree");
    EXPECT_EQ(CountCalls("SetFileInformationByHandle"), 1U);
}

TEST_F(RemoveReparsePointTest, Enters_a_directory_that_is_no_link_and_takes_it_as_its_root)
{
    for (const DWORD tag : c_places)
    {
        for (const wchar_t* const place : {L"C:\\tree\\place", L"C:\\tree"})
        {
            SCOPED_TRACE(tag);
            files.AddFile(std::wstring(place) + L"\\sub\\file");
            files.AddReparsePoint(place, tag);
            ExpectRemoved();
        }
    }
}

TEST_F(RemoveReparsePointTest, Removes_a_name_surrogate_and_never_enters_it)
{
    files.AddFile(L"C:\\target\\precious");
    for (const DWORD tag : c_surrogates)
    {
        SCOPED_TRACE(tag);
        files.AddReparsePoint(L"C:\\tree\\sub\\link", tag, L"C:\\target");
        ExpectRemoved();
        EXPECT_FALSE(WasListed("C:\\tree\\sub\\link"));
        EXPECT_TRUE(files.Has(L"C:\\target\\precious"));
    }
}

TEST_F(RemoveReparsePointTest, Refuses_a_name_surrogate_as_its_root)
{
    for (const DWORD tag : c_surrogates)
    {
        for (const ACCESS_MASK rights : {ACCESS_MASK{FILE_ALL_ACCESS}, c_deletion})
        {
            SCOPED_TRACE(tag);
            files.AddReparsePoint(L"C:\\tree", tag, L"C:\\target");
            files.Grant(L"C:\\tree", rights);
            EXPECT_EQ(Remove(), c_isLink);
            EXPECT_EQ(Remove(L"C:\\tree\\"), c_isLink);
            EXPECT_TRUE(files.Has(L"C:\\tree"));
        }
    }
    EXPECT_FALSE(WasListed("C:\\tree"));
}

TEST_F(RemoveReparsePointTest, Refuses_a_root_that_is_a_link_by_its_handle_or_its_path_alone)
{
    files.AddFile(L"C:\\tree\\precious");
    files.AddReparsePoint(L"C:\\tree", c_junction);
    {
        const Fake<&GetFileAttributesW> attributes = [](const wchar_t*) { return DWORD{FILE_ATTRIBUTE_DIRECTORY}; };
        EXPECT_EQ(Remove(), c_isLink);
    }
    files.HideReparsePointOfOpened(L"C:\\tree");
    EXPECT_EQ(Remove(), c_isLink);
    EXPECT_TRUE(files.Has(L"C:\\tree\\precious"));
}

TEST_F(RemoveReparsePointTest, Leaves_what_is_listed_as_a_link_but_opens_as_a_directory)
{
    files.AddFile(L"C:\\tree\\link\\precious");
    files.AddReparsePoint(L"C:\\tree\\link", c_junction);
    files.HideReparsePointOfOpened(L"C:\\tree\\link");
    ExpectFailure(c_isLink, L"C:\\tree\\link");
    EXPECT_FALSE(WasListed("C:\\tree\\link"));
}

TEST_F(RemoveReparsePointTest, Deletes_a_directory_as_a_link_that_became_one_after_it_was_listed)
{
    files.AddFile(L"C:\\target\\precious");
    files.AddFolder(L"C:\\tree\\sub");
    Before(Opening("C:\\tree", "sub"), [&] { EXPECT_TRUE(files.SetReparsePoint(L"C:\\tree\\sub", L"C:\\target")); });
    ExpectRemoved();
    EXPECT_TRUE(files.Has(L"C:\\target\\precious"));
}

TEST_F(RemoveReparsePointTest, Opens_nothing_in_a_directory_that_became_a_link_while_it_was_open)
{
    files.AddFile(L"C:\\target\\file");
    files.AddFile(L"C:\\tree\\sub\\file");
    Before(Opening("C:\\tree\\sub", "file"), [&] {
        EXPECT_TRUE(files.Delete(L"C:\\tree\\sub\\file"));
        EXPECT_TRUE(files.SetReparsePoint(L"C:\\tree\\sub", L"C:\\target"));
    });
    EXPECT_EQ(Remove(), c_isLink);
    EXPECT_TRUE(files.Has(L"C:\\target\\file"));
    EXPECT_EQ(failures.Count(), 1U);
}

TEST_F(RemoveFromFatDriveTest, Removes_a_tree_there_as_anywhere)
{
    files.isFat = true;
    files.AddFile(L"C:\\tree\\file");
    files.AddFile(L"C:\\tree\\sub\\deeper\\file");
    files.AddFolder(L"C:\\tree\\empty");
    ExpectRemoved();
    // The first file tells that nothing can be deleted at once; the second goes when it is closed.
    EXPECT_EQ(CountCalls("SetFileInformationByHandle"), 2U + 4U);
}

TEST_F(RemoveFromFatDriveTest, Removes_with_their_last_handles_what_others_have_open_and_share)
{
    files.isFat = true;
    files.AddFile(L"C:\\tree\\file");
    {
        const auto holder = Open(L"C:\\tree\\file", GENERIC_READ, c_shareAll);
        EXPECT_EQ(Remove(), HRESULT_FROM_WIN32(ERROR_DIR_NOT_EMPTY));
        EXPECT_TRUE(files.Has(L"C:\\tree\\file"));
    }
    EXPECT_FALSE(files.Has(L"C:\\tree\\file"));
    EXPECT_EQ(Remove(), S_OK);
}

TEST_F(RemoveFromFatDriveTest, Leaves_what_is_read_only_there_too)
{
    files.isFat = true;
    for (const wchar_t* const name : {L"C:\\tree\\a", L"C:\\tree\\b", L"C:\\tree\\c"})
    {
        files.AddFile(name, "content", FILE_ATTRIBUTE_READONLY);
    }
    files.AddFile(L"C:\\tree\\aa");
    EXPECT_EQ(Remove(), E_ACCESSDENIED);
    EXPECT_EQ(failures.Count(), 3U);
    EXPECT_EQ(files.All().size(), 2U + 3U);
}

TEST_F(RemoveFromFatDriveTest, Does_not_enter_a_reparse_point_whose_kind_a_file_system_does_not_tell)
{
    files.isFat = true;
    files.AddFile(L"C:\\tree\\odd\\precious");
    files.AddReparsePoint(L"C:\\tree\\odd", 0);
    files.AddReparsePoint(L"C:\\tree\\empty", 0);
    ExpectFailure(HRESULT_FROM_WIN32(ERROR_DIR_NOT_EMPTY), L"C:\\tree\\odd");
    EXPECT_TRUE(files.Has(L"C:\\tree\\odd\\precious"));
    EXPECT_FALSE(files.Has(L"C:\\tree\\empty"));
    EXPECT_EQ(Remove(L"C:\\tree\\odd"), c_isLink);
    EXPECT_FALSE(WasListed("C:\\tree\\odd"));
}

TEST_F(RemoveFromFatDriveTest, Is_known_by_one_error_and_tells_why_attributes_cannot_be_read)
{
    files.AddFile(L"C:\\tree\\file");
    journal.Fail("GetFileInformationByHandleEx(C:\\tree, 9)");
    journal.Fail("GetFileInformationByHandleEx(C:\\tree, 0)", ERROR_IO_DEVICE);
    EXPECT_EQ(Remove(), E_ACCESSDENIED);
    journal.Fail("GetFileInformationByHandleEx(C:\\tree, 9)", ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Remove(), HRESULT_FROM_WIN32(ERROR_IO_DEVICE));
    EXPECT_TRUE(files.Has(L"C:\\tree\\file"));
}

TEST_F(RemoveWithFewRightsTest, Deletes_what_grants_nothing_but_its_deletion)
{
    files.AddReparsePoint(L"C:\\tree\\link", c_junction, L"C:\\elsewhere");
    for (const wchar_t* const empty : {L"C:\\tree\\closed", L"C:\\empty root"})
    {
        files.AddFolder(empty);
        files.Grant(empty, c_deletion);
    }
    files.AddFile(L"C:\\tree\\file");
    files.Grant(L"C:\\tree\\link", c_deletion);
    files.Grant(L"C:\\tree\\file", DELETE);
    ExpectRemoved();
    ExpectRemoved(L"C:\\empty root");
    EXPECT_FALSE(WasListed("C:\\tree\\link"));
}

TEST_F(RemoveWithFewRightsTest, Tells_that_a_directory_could_not_be_listed_when_it_is_not_empty)
{
    files.AddFile(L"C:\\tree\\closed\\file");
    files.AddFile(L"C:\\tree\\file");
    files.Grant(L"C:\\tree\\closed", c_deletion);
    ExpectFailure(E_ACCESSDENIED, L"C:\\tree\\closed");
    EXPECT_FALSE(files.Has(L"C:\\tree\\file"));
    files.Grant(L"C:\\tree", c_deletion);
    ExpectFailure(E_ACCESSDENIED, L"C:\\tree");
    EXPECT_TRUE(files.Has(L"C:\\tree\\closed\\file"));
}

TEST_F(RemoveWithFewRightsTest, Empties_a_directory_that_lets_itself_be_listed_and_deleted_and_nothing_else)
{
    files.AddFile(L"C:\\tree\\sub\\file");
    files.Grant(L"C:\\tree", FILE_LIST_DIRECTORY | c_deletion);
    files.Grant(L"C:\\tree\\sub", FILE_LIST_DIRECTORY | c_deletion);
    ExpectRemoved();
}

TEST_F(RemoveWithFewRightsTest, Empties_a_directory_that_must_not_be_deleted)
{
    files.AddFile(L"C:\\tree\\kept\\file");
    files.Grant(L"C:\\tree\\kept", FILE_GENERIC_READ);
    ExpectFailure(E_ACCESSDENIED, L"C:\\tree\\kept");
    EXPECT_FALSE(files.Has(L"C:\\tree\\kept\\file"));
}

TEST_F(RemoveWithFewRightsTest, Tells_why_a_directory_that_cannot_be_listed_cannot_be_deleted)
{
    files.AddFolder(L"C:\\tree\\closed");
    files.Grant(L"C:\\tree\\closed", c_deletion);
    journal.Fail("SetFileInformationByHandle", ERROR_IO_DEVICE);
    ExpectFailure(HRESULT_FROM_WIN32(ERROR_IO_DEVICE), L"C:\\tree\\closed");
}

TEST_F(RemoveVolumeMountPointTest, Is_forgotten_by_the_mount_manager)
{
    for (const ACCESS_MASK rights : {ACCESS_MASK{FILE_ALL_ACCESS}, c_deletion})
    {
        files.AddReparsePoint(L"C:\\tree\\sub\\volume", c_junction, c_volume);
        files.Grant(L"C:\\tree\\sub\\volume", rights);
        ExpectRemoved();
    }
    const std::wstring volume(std::wstring_view(c_volume).substr(0, std::wstring_view(c_volume).size() - 1));
    const std::wstring forgotten = L"C:\\tree\\sub\\volume of " + volume;
    EXPECT_THAT(files.Unmounted(), ElementsAre(forgotten, forgotten));
    EXPECT_FALSE(WasListed("C:\\tree\\sub\\volume"));
}

TEST_F(RemoveVolumeMountPointTest, Is_removed_even_if_its_volume_cannot_be_read_or_the_mount_manager_does_not_listen)
{
    for (const char* const call : {"DeviceIoControl(C:\\tree\\volume)", R"(CreateFileW("\\.\MountPointManager"))",
                                   "DeviceIoControl(mount manager)"})
    {
        files.AddReparsePoint(L"C:\\tree\\volume", c_junction, c_volume);
        journal.Fail(call);
        ExpectRemoved();
        EXPECT_EQ(std::ranges::count(journal.All(), call), 1);
        journal.Fail(call, ERROR_SUCCESS, 0);
    }
    EXPECT_THAT(files.Unmounted(), IsEmpty());
}

TEST_F(RemoveVolumeMountPointTest, Stays_mounted_when_it_stays)
{
    for (const ACCESS_MASK rights : {ACCESS_MASK{FILE_GENERIC_READ}, ACCESS_MASK{0}})
    {
        files.AddReparsePoint(L"C:\\tree\\volume", c_junction, c_volume);
        files.Grant(L"C:\\tree\\volume", rights);
        EXPECT_EQ(Remove(), E_ACCESSDENIED);
        EXPECT_TRUE(files.Has(L"C:\\tree\\volume"));
    }
    EXPECT_EQ(Remove(L"C:\\tree\\volume"), E_ACCESSDENIED);
    files.Grant(L"C:\\tree\\volume", FILE_ALL_ACCESS);
    EXPECT_EQ(Remove(L"C:\\tree\\volume"), c_isLink);
    EXPECT_THAT(files.Unmounted(), IsEmpty());
}

TEST_F(RemoveVolumeMountPointTest, Is_no_other_link)
{
    files.AddReparsePoint(L"C:\\tree\\folder", c_junction, L"\\??\\C:\\elsewhere\\");
    files.AddReparsePoint(L"C:\\tree\\folder of a volume", c_junction, std::wstring(c_volume) + L"elsewhere");
    files.AddReparsePoint(L"C:\\tree\\brace", c_junction, L"\\??\\C:\\Volume{}\\");
    files.AddReparsePoint(L"C:\\tree\\nowhere", c_junction);
    // Where its target would lie are other things in a symbolic link.
    files.AddReparsePoint(L"C:\\tree\\symbolic link", 0xA000000C, c_volume);
    ExpectRemoved();
    EXPECT_EQ(std::ranges::count(journal.All(), "DeviceIoControl(mount manager)"), 0);
}

TEST_F(RemoveVolumeMountPointTest, Is_told_by_no_more_than_the_data_that_was_read)
{
    constexpr WORD c_nameBytes = sizeof(c_volume) - sizeof(wchar_t);
    constexpr WORD c_offset = 6;
    constexpr WORD c_header[] = {0x0003, 0xA000, 0, 0, c_offset, c_nameBytes, 0, 0};
    constexpr DWORD c_total = sizeof(c_header) + c_offset + c_nameBytes;
    DWORD told = 0;
    // What a name of all those bytes would hold is there, from another call.
    const Fake<&DeviceIoControl> control = [&](HANDLE handle, DWORD code, void* in, DWORD inSize, void* answer,
                                               DWORD size, DWORD* returned, OVERLAPPED* overlapped) -> BOOL {
        if (answer == nullptr)
        {
            return control.Hidden(handle, code, in, inSize, answer, size, returned, overlapped);
        }
        auto* const bytes = static_cast<std::byte*>(answer);
        std::memset(answer, 0, size);
        std::memcpy(answer, c_header, sizeof(c_header));
        std::memcpy(bytes + sizeof(c_header) + c_offset, c_volume, c_nameBytes);
        *returned = told;
        return TRUE;
    };
    for (const DWORD bytes : {c_total, c_total - 1, DWORD{sizeof(c_header)}, DWORD{0}})
    {
        told = bytes;
        files.AddReparsePoint(L"C:\\tree\\volume", c_junction, c_volume);
        ExpectRemoved();
        EXPECT_EQ(files.Unmounted().size(), 1U) << bytes;
    }
}

// Somebody who owns the tree changes it while it is removed.
namespace
{

constexpr wchar_t c_product[] = L"C:\\ProgramData\\Product";
constexpr wchar_t c_system[] = L"C:\\Windows\\System32";

struct ProductMachine
{
    ProductMachine()
    {
        // What lies in the system bears the names of what the product has, wherever a link would lead from.
        for (const wchar_t* const name : {L"file", L"other", L"a\\file", L"a\\other", L"a\\deep\\file",
                                          L"a\\deep\\other", L"b\\file", L"b\\other", L"deep\\file", L"deep\\other"})
        {
            files.AddFile(std::wstring(c_product) + L'\\' + name, "product");
            files.AddFile(std::wstring(c_system) + L'\\' + name, "system");
        }
        files.AddFile(std::wstring(c_system) + L"\\read-only", "system", FILE_ATTRIBUTE_READONLY);
        files.AddFolder(std::wstring(c_system) + L"\\volume");
        files.AddReparsePoint(std::wstring(c_product) + L"\\a\\volume", c_junction, c_volume);
        files.AddReparsePoint(std::wstring(c_product) + L"\\b\\link", c_junction, c_system);
        files.AddHardLink(std::wstring(c_product) + L"\\b\\hard link", std::wstring(c_system) + L"\\file");
    }

    Journal journal;
    Handles handles{journal};
    FakeFileSystem files{journal, handles};
};

std::vector<Attack> AllAttacks()
{
    const std::wstring product = c_product;
    const std::wstring system = c_system;
    const PathIn target = [](FakeFileSystem&) { return std::wstring(c_system); };
    std::vector<Attack> attacks;
    for (const wchar_t* const name : {L"", L"\\a", L"\\a\\deep", L"\\b", L"\\deep"})
    {
        const PathIn folder = [path = product + name](FakeFileSystem&) { return path; };
        attacks.push_back(ExchangeForLink("folder " + Narrow(name), folder, target));
        attacks.push_back(MakeLinkOf("folder " + Narrow(name), folder, target, L"file"));
    }
    const auto exchange = [=](FakeFileSystem& files) {
        return files.Rename(product + L"\\a", product + L"\\x") && files.Rename(product + L"\\b", product + L"\\a") &&
               files.Rename(product + L"\\x", product + L"\\b");
    };
    attacks.push_back({"two folders exchange their names", exchange, exchange});
    for (const wchar_t* const name : {L"\\file", L"\\a\\other", L"\\a\\volume"})
    {
        const std::wstring path = product + name;
        attacks.push_back({Narrow(name) + " becomes a link to a folder",
                           [=](FakeFileSystem& files) {
                               return Put(files, path, [&] { files.AddReparsePoint(path, c_junction, system); });
                           },
                           [=](FakeFileSystem& files) { Put(files, path, [&] { files.AddFile(path, "product"); }); }});
    }
    for (const wchar_t* const name : {L"\\a\\deep", L"\\b", L"\\a\\file"})
    {
        for (const wchar_t* const file : {L"\\read-only", L"\\other"})
        {
            attacks.push_back({Narrow(name) + " becomes " + Narrow(file) + " of the system",
                               [=, path = product + name](FakeFileSystem& files) {
                                   return Put(files, path, [&] { files.AddHardLink(path, system + file); });
                               }});
        }
    }
    return attacks;
}

} // namespace

TEST(RemoveDirectoryUnderAttackTest, Deletes_nothing_of_a_strangers_whenever_the_tree_is_changed)
{
    RunUnder<ProductMachine>(AllAttacks(), [](const ProductMachine&) { RemoveDirectoryRecursiveNoThrow(c_product); });
}

// Real trees, which show that the calls are right.
namespace
{

class RemoveRealDirectoryTest : public testing::Test
{
protected:
    HRESULT Remove(const std::wstring& name) { return RemoveDirectoryRecursiveNoThrow((folder / name).c_str()); }

    void ExpectRemoved()
    {
        EXPECT_EQ(Remove(L"tree"), S_OK);
        EXPECT_FALSE(Exists(folder / L"tree"));
    }

    TestFolder folder;
};

} // namespace

TEST_F(RemoveRealDirectoryTest, Is_created_and_removed_by_a_path_in_every_form)
{
    const std::wstring name = L"a\\b\\tree";
    const std::wstring path = folder / name;
    std::wstring forward = path;
    std::replace(forward.begin(), forward.end(), L'\\', L'/');
    SetCurrentDirectoryW(folder.Path().c_str());
    for (const std::wstring& form :
         {path, path + L"\\", path + L"\\\\", forward, forward + L"/", forward + L"//", L"\\\\?\\" + path,
          L"\\\\?\\" + path + L"\\", L"\\\\.\\" + path, L"//?/" + forward, L"//./" + forward + L"/",
          folder / L"other\\..\\" + name, path + L".", path + L" ", name})
    {
        SCOPED_TRACE(testing::PrintToString(form));
        EXPECT_EQ(wil::CreateDirectoryDeepNoThrow(form.c_str()), S_OK);
        EXPECT_TRUE(Exists(path));
        folder.AddFile(name + L"\\sub\\file");
        EXPECT_EQ(RemoveDirectoryRecursiveNoThrow(form.c_str()), S_OK);
        EXPECT_FALSE(Exists(path));
        EXPECT_EQ(Remove(L"a"), S_OK);
    }
    // Back to where it was is no way under Wine when that is no folder of a drive.
    SetCurrentDirectoryW((folder / L"..").c_str());
}

TEST_F(RemoveRealDirectoryTest, Has_names_that_windows_would_normalise_and_paths_beyond_its_limits)
{
    for (const wchar_t* const name : {L"dot.", L"blank ", L"both. . ", L"sub. \\file. "})
    {
        folder.AddFile(std::wstring(L"tree\\") + name);
    }
    std::wstring deep = L"tree";
    for (int i = 0; i < 200; ++i)
    {
        deep += L"\\d";
    }
    folder.AddFile(deep + L"\\" + std::wstring(200, L'x'));
    ExpectRemoved();
}

TEST_F(RemoveRealDirectoryTest, Keeps_a_file_that_is_in_use_until_it_is_closed)
{
    const std::wstring file = folder.AddFile(L"tree\\sub\\in use");
    folder.AddFile(L"tree\\sub\\file");
    {
        const RecordedFailures failures;
        const wil::unique_hfile open(
            CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        EXPECT_EQ(Remove(L"tree"), c_inUse);
        EXPECT_EQ(failures.Last().message, L"\\\\?\\" + file);
        EXPECT_TRUE(Exists(file));
        EXPECT_FALSE(Exists(folder / L"tree\\sub\\file"));
    }
    ExpectRemoved();
}

TEST_F(RemoveRealDirectoryTest, Is_refused_when_it_is_a_link)
{
    folder.AddFile(L"target\\precious");
    ASSERT_TRUE(CreateDirectoryLink(folder / L"link", folder / L"target"));
    for (const wchar_t* const name : {L"link", L"link\\", L"link//"})
    {
        EXPECT_EQ(Remove(name), c_isLink);
    }
    EXPECT_TRUE(Exists(folder / L"target\\precious"));
    EXPECT_TRUE(RemoveDirectoryLink(folder / L"link"));
}

TEST_F(RemoveRealDirectoryTest, Has_a_link_that_is_never_entered)
{
    folder.AddFile(L"target\\precious");
    folder.AddFile(L"tree\\file");
    ASSERT_TRUE(CreateDirectoryLink(folder / L"tree\\link", folder / L"target"));
    // Wine opens the target, which is listed as a link and opens as none.
    EXPECT_EQ(Remove(L"tree"), CanRemoveDirectoryLinks() ? S_OK : c_isLink);
    EXPECT_FALSE(Exists(folder / L"tree\\file"));
    EXPECT_TRUE(Exists(folder / L"target\\precious"));
    RemoveDirectoryLink(folder / L"tree\\link");
}
