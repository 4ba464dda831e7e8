#include "Installer/Shortcuts.h"

#include "support/FailureLog.h"
#include "support/FakeFolders.h"
#include "support/OutOfMemory.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using Pauses = std::vector<DWORD>;

constexpr HRESULT c_accessDenied = HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);

class ShortcutsTest : public testing::Test
{
protected:
    using Notification = std::tuple<LONG, UINT, std::wstring, LPCVOID>;

    static Notification Deleted(const std::wstring& path) { return {4, 0x3005, path, nullptr}; }

    VirtualClock clock;
    TestFolder root;
    FakeFolders folders{root};
    FailureLog failures;
    std::vector<Notification> notified;
    Fake<&SHChangeNotify> notify = [this](LONG event, UINT flags, LPCVOID first, LPCVOID second) {
        notified.emplace_back(event, flags, static_cast<const wchar_t*>(first), second);
    };
};

TEST_F(ShortcutsTest, DeleteDesktopShortcut_deletes_the_one_of_all_users_and_tells_the_shell)
{
    const std::wstring shortcut = root.AddFile(L"Desktop\\Velmora.lnk");
    root.AddFile(L"Desktop\\Velmora2.lnk");
    root.AddFile(L"Programs\\Velmora.lnk");

    EXPECT_EQ(DeleteDesktopShortcut(), S_OK);

    EXPECT_FALSE(Exists(shortcut));
    EXPECT_TRUE(Exists(root / L"Desktop\\Velmora2.lnk"));
    EXPECT_TRUE(Exists(root / L"Programs\\Velmora.lnk"));
    EXPECT_EQ(notified, std::vector{Deleted(shortcut)});
    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

TEST_F(ShortcutsTest, DeleteStartMenuShortcut_deletes_the_one_directly_in_the_programs_folder)
{
    const std::wstring shortcut = root.AddFile(L"Programs\\Velmora.lnk");
    root.AddFile(L"Programs\\Velmora\\Velmora.lnk");
    root.AddFile(L"Desktop\\Velmora.lnk");

    EXPECT_EQ(DeleteStartMenuShortcut(), S_OK);

    EXPECT_FALSE(Exists(shortcut));
    EXPECT_TRUE(Exists(root / L"Programs\\Velmora\\Velmora.lnk"));
    EXPECT_TRUE(Exists(root / L"Desktop\\Velmora.lnk"));
    EXPECT_EQ(notified, std::vector{Deleted(shortcut)});
}

TEST_F(ShortcutsTest, a_missing_shortcut_is_success_without_a_pause_or_a_notification)
{
    EXPECT_EQ(DeleteDesktopShortcut(), S_OK);
    EXPECT_EQ(DeleteStartMenuShortcut(), S_OK);

    EXPECT_TRUE(notified.empty());
    EXPECT_EQ(clock.Sleeps(), Pauses{});
    EXPECT_TRUE(failures.Entries().empty());
}

TEST_F(ShortcutsTest, a_folder_of_that_name_is_left_alone)
{
    root.AddFile(L"Desktop\\Velmora.lnk\\file.txt");

    EXPECT_EQ(DeleteDesktopShortcut(), S_OK);

    EXPECT_TRUE(Exists(root / L"Desktop\\Velmora.lnk\\file.txt"));
    EXPECT_TRUE(notified.empty());
}

TEST_F(ShortcutsTest, a_read_only_shortcut_stays_after_ten_attempts)
{
    const std::wstring shortcut = root.AddFile(L"Desktop\\Velmora.lnk");
    SetFileAttributesW(shortcut.c_str(), FILE_ATTRIBUTE_READONLY);

    EXPECT_EQ(DeleteDesktopShortcut(), c_accessDenied);

    EXPECT_EQ(clock.Sleeps(), Pauses(10, 1000));
    EXPECT_TRUE(Exists(shortcut));
    EXPECT_NE(GetFileAttributesW(shortcut.c_str()) & FILE_ATTRIBUTE_READONLY, 0U);
    EXPECT_TRUE(notified.empty());
    EXPECT_TRUE(failures.Contains("Shortcuts", c_accessDenied));
}

TEST_F(ShortcutsTest, a_shortcut_that_is_let_go_is_deleted_at_a_later_attempt)
{
    const std::wstring shortcut = root.AddFile(L"Programs\\Velmora.lnk");
    SetFileAttributesW(shortcut.c_str(), FILE_ATTRIBUTE_READONLY);
    clock.At(2500, [&] { SetFileAttributesW(shortcut.c_str(), FILE_ATTRIBUTE_NORMAL); });

    EXPECT_EQ(DeleteStartMenuShortcut(), S_OK);

    EXPECT_EQ(clock.Sleeps(), Pauses(3, 1000));
    EXPECT_EQ(notified, std::vector{Deleted(shortcut)});
}

TEST_F(ShortcutsTest, a_folder_that_cannot_be_found_is_asked_for_ten_times)
{
    constexpr HRESULT c_missing = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    root.AddFile(L"Desktop\\Velmora.lnk");
    root.AddFile(L"Programs\\Velmora.lnk");
    folders.knownFolderResult = c_missing;
    std::vector<GUID> asked;
    Fake<&SHGetKnownFolderPath> find = [&](REFKNOWNFOLDERID id, DWORD flags, HANDLE token, PWSTR* path) -> HRESULT {
        asked.push_back(id);
        return find.Hidden(id, flags, token, path);
    };

    EXPECT_EQ(DeleteDesktopShortcut(), c_missing);

    EXPECT_EQ(asked, std::vector<GUID>(10, FOLDERID_PublicDesktop));
    EXPECT_EQ(clock.Sleeps(), Pauses(10, 1000));
    EXPECT_TRUE(failures.Contains("Shortcuts", c_missing));
    EXPECT_EQ(failures.Entries().size(), 10U);

    asked.clear();
    EXPECT_EQ(DeleteStartMenuShortcut(), c_missing);

    EXPECT_EQ(asked, std::vector<GUID>(10, FOLDERID_CommonPrograms));
    EXPECT_EQ(clock.Sleeps(), Pauses(20, 1000));
    EXPECT_TRUE(Exists(root / L"Desktop\\Velmora.lnk"));
    EXPECT_TRUE(Exists(root / L"Programs\\Velmora.lnk"));
    EXPECT_TRUE(notified.empty());
}

TEST_F(ShortcutsTest, the_last_failure_is_returned)
{
    folders.knownFolderResult = E_FAIL;
    clock.At(8500, [this] { folders.knownFolderResult = E_ACCESSDENIED; });

    EXPECT_EQ(DeleteStartMenuShortcut(), E_ACCESSDENIED);
}

TEST_F(ShortcutsTest, the_folder_is_freed_at_every_attempt)
{
    root.AddFile(L"Desktop\\Velmora.lnk");
    unsigned freed = 0;
    Fake<&CoTaskMemFree> free = [&](LPVOID memory) {
        freed += memory != nullptr ? 1 : 0;
        decltype(free)::Real(memory);
    };
    Fake<&DeleteFileW> deleteFile = [](LPCWSTR) -> BOOL {
        SetLastError(ERROR_SHARING_VIOLATION);
        return FALSE;
    };

    EXPECT_EQ(DeleteDesktopShortcut(), HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION));

    EXPECT_EQ(freed, 10U);
}

TEST_F(ShortcutsTest, BuildShortcutPath_appends_the_name)
{
    std::wstring path;

    EXPECT_EQ(BuildShortcutPath(L"C:\\Users\\Public\\Desktop", path), S_OK);

    EXPECT_EQ(path, L"C:\\Users\\Public\\Desktop\\Velmora.lnk");
}

TEST_F(ShortcutsTest, BuildShortcutPath_fails_only_when_memory_runs_out)
{
    std::wstring path;
    const OutOfMemory outOfMemory;

    EXPECT_EQ(BuildShortcutPath(L"C:\\Users\\Public\\Desktop", path), E_OUTOFMEMORY);
}

TEST_F(ShortcutsTest, DeleteShortcutFile_makes_one_attempt)
{
    const std::wstring shortcut = root.AddFile(L"any.lnk");
    SetFileAttributesW(shortcut.c_str(), FILE_ATTRIBUTE_READONLY);

    EXPECT_EQ(DeleteShortcutFile(shortcut), c_accessDenied);
    EXPECT_EQ(DeleteShortcutFile(root / L"missing.lnk"), S_OK);

    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

} // namespace
