#include "Installer/Common.h"

#include "support/common/DirectoryLink.h"
#include "support/unit/FailureLog.h"
#include "support/unit/FakeFileSystem.h"
#include "support/unit/FakeFolders.h"
#include "support/unit/Handles.h"
#include "support/unit/Journal.h"
#include "support/unit/OutOfMemory.h"
#include "support/unit/PathLimits.h"
#include "support/unit/RefusedAllocations.h"
#include "support/unit/TestFolder.h"
#include "support/unit/VirtualClock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cwchar>
#include <iterator>
#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using testing::AllOf;
using testing::Each;
using testing::IsEmpty;
using testing::Not;
using Pauses = std::vector<DWORD>;

constexpr HRESULT c_accessDenied = HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);

struct KnownFolder
{
    std::wstring (*get)();
    const char* call;
    const wchar_t* name; // below the folder of the test
    const wchar_t* fallback;
};

constexpr KnownFolder c_knownFolders[] = {
    {GetProgramFilesFolder, "SHGetKnownFolderPath(ProgramFiles, 0x0)", L"Program Files\\", L"C:\\Program Files\\"},
    {GetProgramFilesX64Folder, "SHGetKnownFolderPath(ProgramFilesX64, 0x0)", L"Program Files X64\\",
     L"C:\\Program Files\\"},
    {GetProgramDataFolder, "SHGetKnownFolderPath(ProgramData, 0x0)", L"ProgramData\\", L"C:\\ProgramData\\"},
};

TEST(FoldersTest, Known_folders_end_in_a_backslash_and_have_a_fixed_fallback)
{
    const VirtualClock clock;
    const TestFolder root;
    Journal journal;
    const FakeFolders folders{root, &journal};
    for (const auto& [get, call, name, fallback] : c_knownFolders)
    {
        EXPECT_EQ(get(), root / name);
        EXPECT_EQ(journal.Take(), Calls{call});

        journal.Fail(call, E_FAIL);
        EXPECT_EQ(get(), fallback);
        EXPECT_EQ(journal.Take(), Calls{call});
    }
    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST(FoldersTest, Known_folders_have_their_fallback_without_memory)
{
    // A text of its own: nothing is allocated to tell it.
    static constexpr wchar_t known[] = L"D:\\Some known folder";
    const Fake<&SHGetKnownFolderPath> knownFolder = [](REFKNOWNFOLDERID, DWORD, HANDLE, PWSTR* path) -> HRESULT {
        *path = static_cast<PWSTR>(CoTaskMemAlloc(sizeof(known)));
        std::wmemcpy(*path, known, std::size(known));
        return S_OK;
    };
    for (const auto& [get, call, name, fallback] : c_knownFolders)
    {
        auto folders = ReturnedWithoutEachAllocation(get);

        EXPECT_EQ(folders.back(), std::wstring(known) + L"\\");
        folders.pop_back();
        EXPECT_THAT(folders, AllOf(Not(IsEmpty()), Each(fallback)));
        // Without any memory there is not even the text of the fixed place.
        EXPECT_THROW(
            {
                const OutOfMemory outOfMemory;
                get();
            },
            std::bad_alloc);
    }
}

TEST(SystemFolderTest, Is_told_as_Windows_tells_it)
{
    constexpr std::wstring_view folder = L"D:\\Windows\\System32";
    UINT length = folder.size();
    const Fake<&GetSystemDirectoryW> system = [&](LPWSTR path, UINT size) {
        path[folder.copy(path, size - 1)] = L'\0';
        return length;
    };
    EXPECT_EQ(FindSystemFolder(), folder);

    for (const UINT failing : {0U, static_cast<UINT>(MAX_PATH), MAX_PATH + 5U}) // a failure, and buffers too small
    {
        length = failing;
        EXPECT_EQ(FindSystemFolder(), L"");
    }

    length = folder.size();
    const OutOfMemory outOfMemory;
    EXPECT_TRUE(FindSystemFolder().empty());
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
    // A missing folder is done.
    EXPECT_EQ(DeleteFolderWithRetry(root / L"folder"), S_OK);
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

// Folders with reparse points, on a machine in memory.
class DeleteReparsePointTest : public testing::Test
{
protected:
    Journal journal;
    Handles handles{journal};
    FakeFileSystem files{journal, handles};
};

TEST_F(DeleteReparsePointTest, RemoveFolder_removes_a_folder_whose_reparse_point_is_no_link)
{
    // Of a cloud store, of a container, of a provider of files.
    for (const DWORD tag : {0x9000001AUL, 0x90001018UL, 0x9000001CUL})
    {
        files.AddReparsePoint(L"C:\\folder", tag);
        files.AddFile(L"C:\\folder\\data");

        EXPECT_EQ(RemoveFolder(L"C:\\folder\\"), S_OK) << tag;

        EXPECT_FALSE(files.Has(L"C:\\folder")) << tag;
    }
}

// Also with a long path, and before anything is opened.
TEST_F(DeleteReparsePointTest, RemoveFolder_refuses_a_link_of_every_kind_and_what_could_be_one)
{
    const std::wstring folder = L"C:\\" + std::wstring(200, L'a') + L"\\" + std::wstring(200, L'b');
    const PathLimits limits;
    // A junction, a symbolic link, one of another system; and one of a kind that is not told.
    for (const DWORD tag : {0xA0000003UL, 0xA000000CUL, 0xA0000027UL, 0UL})
    {
        files.AddReparsePoint(folder, tag);

        EXPECT_EQ(RemoveFolder(folder + L"\\"), HRESULT_FROM_WIN32(ERROR_REPARSE_POINT_ENCOUNTERED)) << tag;
    }

    EXPECT_EQ(journal.CallsOf({"CreateFileW"}), Calls{});
    EXPECT_TRUE(files.Has(folder));
}

TEST_F(DeleteReparsePointTest, RemoveFolder_refuses_a_reparse_point_that_cannot_be_looked_at)
{
    files.AddReparsePoint(L"C:\\folder", 0x9000001A);
    const Fake<&FindFirstFileW> find = [](LPCWSTR, LPWIN32_FIND_DATAW data) -> HANDLE {
        data->dwReserved0 = 0x9000001A; // it may be anything
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    };

    EXPECT_EQ(RemoveFolder(L"C:\\folder"), HRESULT_FROM_WIN32(ERROR_REPARSE_POINT_ENCOUNTERED));

    EXPECT_TRUE(files.Has(L"C:\\folder"));
}

TEST_F(DeleteFolderTest, A_folder_with_a_long_path_is_found_and_removed)
{
    const std::wstring name = std::wstring(200, L'a') + L"\\" + std::wstring(200, L'b');
    root.AddFile(name + L"\\deep\\file");
    const PathLimits limits;

    EXPECT_TRUE(FolderExists(root / name));
    EXPECT_TRUE(FolderExists(root / name + L"\\"));
    EXPECT_TRUE(FolderExists(L"\\\\?\\" + root / name));
    EXPECT_FALSE(FolderExists(root / name + L"\\deep\\file"));
    EXPECT_FALSE(FolderExists(root / name + L"2"));
    EXPECT_TRUE(FolderExists(root.Path()));

    EXPECT_EQ(DeleteFolderWithRetry(root / name + L"\\"), S_OK);

    EXPECT_FALSE(FolderExists(root / name));
    EXPECT_EQ(clock.Sleeps(), Pauses{});
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

TEST(SystemMessageTest, Is_asked_of_the_system_for_the_code_in_the_language_of_the_user)
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

TEST(SystemMessageTest, Is_empty_for_a_code_without_one)
{
    EXPECT_EQ(GetSystemMessage(static_cast<HRESULT>(0xa1234567)), L"");
}

} // namespace
