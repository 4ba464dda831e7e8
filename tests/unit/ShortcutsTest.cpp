#include "Installer/Shortcuts.h"

#include "support/unit/FailureLog.h"
#include "support/unit/FakeFolders.h"
#include "support/unit/Journal.h"
#include "support/unit/OutOfMemory.h"
#include "support/unit/TestFolder.h"
#include "support/unit/VirtualClock.h"

#include <gmock/gmock.h>

#include <string>

namespace
{

using namespace Installer;
using namespace Testing;
using testing::ElementsAre;
using testing::IsEmpty;

struct Shortcut
{
    const char* name;
    HRESULT (*remove)() noexcept;
    const wchar_t* file;
    const char* ask; // for its folder
};

void PrintTo(const Shortcut& shortcut, std::ostream* stream)
{
    *stream << shortcut.name;
}

class ShortcutsTest : public testing::TestWithParam<Shortcut>
{
protected:
    std::wstring AddShortcut(DWORD attributes = FILE_ATTRIBUTE_NORMAL) const
    {
        const std::wstring path = root.AddFile(GetParam().file);
        SetFileAttributesW(path.c_str(), attributes);
        return path;
    }

    static std::string Deleted(const std::wstring& path)
    {
        return "SHChangeNotify(0x4, 0x3005, \"" + Narrow(path) + "\", null)";
    }

    Journal journal;
    VirtualClock clock{&journal};
    TestFolder root;
    FakeFolders folders{root, &journal};
    FailureLog failures;
    Fake<&SHChangeNotify> notify = [this](LONG event, UINT flags, LPCVOID first, LPCVOID second) {
        journal.Add("SHChangeNotify", Mask(static_cast<DWORD>(event)), Mask(flags), static_cast<const wchar_t*>(first),
                    second);
    };
};

INSTANTIATE_TEST_SUITE_P(Delete, ShortcutsTest,
                         testing::Values(Shortcut{"DesktopShortcut", DeleteDesktopShortcut, L"Desktop\\Velmora.lnk",
                                                  "SHGetKnownFolderPath(PublicDesktop, 0x0)"},
                                         Shortcut{"StartMenuShortcut", DeleteStartMenuShortcut,
                                                  L"Programs\\Velmora.lnk",
                                                  "SHGetKnownFolderPath(CommonPrograms, 0x0)"}),
                         [](const auto& shortcut) { return std::string(shortcut.param.name); });

TEST_P(ShortcutsTest, Deletes_the_one_of_all_users_and_tells_the_shell)
{
    const std::wstring others[] = {root.AddFile(L"Desktop\\Velmora2.lnk"), root.AddFile(L"Programs\\Velmora\\a.lnk"),
                                   root.AddFile(L"Programs\\Velmora\\Velmora.lnk"), root.AddFile(L"Velmora.lnk")};
    const std::wstring shortcut = AddShortcut();

    EXPECT_EQ(GetParam().remove(), S_OK);

    EXPECT_FALSE(Exists(shortcut));
    EXPECT_THAT(others, testing::Each(testing::ResultOf(&Exists, true)));
    EXPECT_THAT(journal.All(), ElementsAre(GetParam().ask, Deleted(shortcut)));
}

TEST_P(ShortcutsTest, Takes_a_missing_shortcut_for_done)
{
    EXPECT_EQ(GetParam().remove(), S_OK);

    EXPECT_THAT(journal.All(), ElementsAre(GetParam().ask));
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_P(ShortcutsTest, Leaves_a_folder_of_that_name_alone)
{
    const std::wstring folder = root.AddFolder(GetParam().file);

    EXPECT_EQ(GetParam().remove(), S_OK);

    EXPECT_TRUE(Exists(folder));
    EXPECT_THAT(journal.All(), ElementsAre(GetParam().ask));
}

TEST_P(ShortcutsTest, Leaves_a_read_only_shortcut_after_ten_attempts)
{
    const std::wstring shortcut = AddShortcut(FILE_ATTRIBUTE_READONLY);

    EXPECT_EQ(GetParam().remove(), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));

    EXPECT_EQ(journal.All(), 10 * Calls({GetParam().ask, "Sleep(1000)"}));
    EXPECT_NE(GetFileAttributesW(shortcut.c_str()) & FILE_ATTRIBUTE_READONLY, 0U);
    EXPECT_TRUE(failures.Contains("Shortcuts", HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)));
}

TEST_P(ShortcutsTest, Asks_ten_times_for_a_folder_that_cannot_be_found)
{
    const std::wstring shortcut = AddShortcut();
    journal.Fail(GetParam().ask, HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));

    EXPECT_EQ(GetParam().remove(), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));

    EXPECT_EQ(journal.All(), 10 * Calls({GetParam().ask, "Sleep(1000)"}));
    EXPECT_EQ(failures.Entries(),
              std::vector(10, FailureLog::Entry("Shortcuts", HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND))));
    EXPECT_TRUE(Exists(shortcut));
}

TEST(ShortcutPathTest, BuildShortcutPath_appends_the_name_and_fails_only_when_memory_runs_out)
{
    std::wstring path;
    EXPECT_EQ(BuildShortcutPath(L"C:\\Users\\Public\\Desktop", path), S_OK);
    EXPECT_EQ(path, L"C:\\Users\\Public\\Desktop\\Velmora.lnk");

    const OutOfMemory outOfMemory;
    EXPECT_EQ(BuildShortcutPath(L"C:\\Users\\Public\\Desktop", path), E_OUTOFMEMORY);
}

} // namespace
