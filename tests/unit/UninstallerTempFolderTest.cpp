#include "Installer/UninstallerTempFolder.h"

#include "support/unit/FailureLog.h"
#include "support/unit/FakeFileSystem.h"
#include "support/unit/FakePrivileges.h"
#include "support/unit/FakeProcesses.h"
#include "support/unit/OutOfMemory.h"
#include "support/unit/RefusedAllocations.h"
#include "support/unit/VirtualClock.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using Pauses = std::vector<DWORD>;

constexpr wchar_t c_product[] = L"C:\\Temp\\Velmora";
constexpr wchar_t c_folder[] = L"C:\\Temp\\Velmora\\Uninstaller";
constexpr wchar_t c_bystander[] = L"C:\\Windows\\System32\\file";

class UninstallerTempFolderTest : public testing::Test
{
protected:
    UninstallerTempFolderTest()
    {
        files.AddFile(c_bystander);
        files.AddFolder(L"C:\\Temp");
        files.hasBackupPrivileges = [this] {
            return privileges.backup == FakePrivileges::State::Enabled &&
                   privileges.restore == FakePrivileges::State::Enabled;
        };
    }
    ~UninstallerTempFolderTest() override
    {
        EXPECT_TRUE(files.Has(c_bystander));
        EXPECT_EQ(privileges.CountEnabled(), 0U);
    }

    void ExpectPrivate()
    {
        const UninstallerTempFolder opened = OpenUninstallerTempFolder();
        EXPECT_EQ(opened.path, std::wstring(c_folder) + L"\\");
        EXPECT_TRUE(opened.IsPrivate());
        EXPECT_EQ(opened.result, S_OK);
        EXPECT_TRUE(files.IsPrivate(c_product) && files.IsPrivate(c_folder));
        EXPECT_FALSE(files.IsPrivate(L"C:\\Temp"));
    }

    // It is not: for that reason, after ten attempts.
    void ExpectRefused(HRESULT reason)
    {
        const UninstallerTempFolder opened = OpenUninstallerTempFolder();
        EXPECT_EQ(opened.path, std::wstring(c_folder) + L"\\");
        EXPECT_FALSE(opened.IsPrivate());
        EXPECT_EQ(opened.result, reason);
        EXPECT_FALSE(opened.folder);
        EXPECT_EQ(clock.Sleeps(), Pauses(10, 1000));
    }

    Journal journal;
    VirtualClock clock;
    Handles handles{journal};
    FailureLog failures;
    FakeProcesses processes{journal, handles};
    FakePrivileges privileges{journal, handles, processes};
    FakeFileSystem files{journal, handles};
    std::wstring temp = L"C:\\Temp\\";
    Fake<&GetTempPathW> tempPath = [this](DWORD size, LPWSTR path) -> DWORD {
        if (size <= temp.size())
        {
            return static_cast<DWORD>(temp.size() + 1);
        }
        path[temp.copy(path, temp.size())] = L'\0';
        return static_cast<DWORD>(temp.size());
    };
};

TEST_F(UninstallerTempFolderTest, Is_created_for_the_administrators_and_this_process_alone)
{
    ExpectPrivate();

    EXPECT_EQ(clock.Sleeps(), Pauses{});
    EXPECT_EQ(GetUninstallerTempFolder(), std::wstring(c_folder) + L"\\");
}

TEST_F(UninstallerTempFolderTest, Is_created_with_all_parents)
{
    temp = L"C:\\some\\Temp\\";

    EXPECT_TRUE(OpenUninstallerTempFolder().IsPrivate());

    EXPECT_TRUE(files.IsPrivate(L"C:\\some\\Temp\\Velmora\\Uninstaller"));
    EXPECT_FALSE(files.IsPrivate(L"C:\\some\\Temp"));
}

TEST_F(UninstallerTempFolderTest, Keeps_what_is_in_it_and_may_be_a_reparse_point_that_is_no_link)
{
    files.AddFile(std::wstring(c_product) + L"\\Other\\file");
    files.AddReparsePoint(c_folder, IO_REPARSE_TAG_CLOUD);
    files.AddFile(std::wstring(c_folder) + L"\\log");

    ExpectPrivate();

    EXPECT_TRUE(files.Has(std::wstring(c_folder) + L"\\log"));
    EXPECT_FALSE(files.IsPrivate(std::wstring(c_product) + L"\\Other\\file"));
}

TEST_F(UninstallerTempFolderTest, That_ten_tries_could_not_create_is_returned_all_the_same)
{
    files.AddFile(c_product); // a file where the folder belongs

    ExpectRefused(HRESULT_FROM_WIN32(ERROR_DIRECTORY));

    EXPECT_TRUE(files.Has(c_product));
}

TEST_F(UninstallerTempFolderTest, Is_not_tried_again_once_it_could_be_created)
{
    files.AddFile(c_product);
    clock.At(2500, [this] { files.Delete(c_product); });

    ExpectPrivate();

    EXPECT_EQ(clock.Sleeps(), Pauses(3, 1000));
}

TEST_F(UninstallerTempFolderTest, Falls_back_to_the_folder_of_Windows)
{
    files.AddFolder(L"C:\\Windows\\Temp");
    // What Windows answers when it is asked for the size, and for the folder: a failure, or one that has grown.
    for (const auto& [size, length] : {std::pair{0U, 0U}, {20U, 0U}, {20U, 20U}, {20U, 30U}})
    {
        Fake<&GetTempPathW> failing = [&](DWORD room, LPWSTR) -> DWORD { return room == 0 ? size : length; };

        const UninstallerTempFolder opened = OpenUninstallerTempFolder();

        EXPECT_TRUE(opened.IsPrivate());
        EXPECT_EQ(opened.path, L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\");
    }
    EXPECT_TRUE(files.IsPrivate(L"C:\\Windows\\Temp\\Velmora\\Uninstaller"));
}

TEST_F(UninstallerTempFolderTest, Stays_in_its_place_while_it_is_held)
{
    {
        const UninstallerTempFolder opened = OpenUninstallerTempFolder();
        for (const std::wstring folder : {c_product, c_folder})
        {
            EXPECT_FALSE(files.Rename(folder, folder + L"2")) << Narrow(folder);
            EXPECT_FALSE(files.Delete(folder)) << Narrow(folder);
        }
        EXPECT_TRUE(OpenUninstallerTempFolder().IsPrivate()) << "by another run";
    }
    EXPECT_TRUE(files.Rename(c_product, std::wstring(c_product) + L"2"));
}

TEST_F(UninstallerTempFolderTest, Is_not_private_on_a_drive_without_access_lists_and_is_left_there)
{
    files.isFat = true;
    files.AddFile(std::wstring(c_folder) + L"\\file");

    ExpectRefused(HRESULT_FROM_WIN32(ERROR_NOT_SUPPORTED));

    EXPECT_TRUE(files.Has(std::wstring(c_folder) + L"\\file"));
}

TEST_F(UninstallerTempFolderTest, Is_not_private_while_somebody_has_it_open_for_writing)
{
    files.AddFolder(c_folder);
    const wil::unique_hfile writer(CreateFileW(c_folder, FILE_ADD_FILE,
                                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                               OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));

    ExpectRefused(HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION));
}

TEST_F(UninstallerTempFolderTest, Is_not_private_whichever_call_fails)
{
    files.AddFolder(c_folder);
    for (const char* const function : {"CreateDirectoryW", "CreateFileW", "GetVolumeInformationByHandleW",
                                       "GetFileInformationByHandleEx", "GetSecurityInfo", "SetKernelObjectSecurity"})
    {
        journal.Fail(function, ERROR_GEN_FAILURE);

        const UninstallerTempFolder opened = OpenUninstallerTempFolder();

        EXPECT_EQ(opened.result,
                  HRESULT_FROM_WIN32(std::string_view(function) == "GetVolumeInformationByHandleW" ? ERROR_NOT_SUPPORTED
                                                                                                   : ERROR_GEN_FAILURE))
            << function;
        EXPECT_FALSE(opened.product || opened.folder) << function;
        EXPECT_TRUE(files.Has(c_folder)) << function;
        journal.Fail(function, ERROR_SUCCESS, 0);
    }
}

TEST_F(UninstallerTempFolderTest, Has_its_fixed_place_without_memory)
{
    const auto places = ReturnedWithoutEachAllocation([] { return GetUninstallerTempFolderPath(); });

    EXPECT_GE(places.size(), 2U);
    EXPECT_EQ(places.front(), L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\");
    EXPECT_EQ(places.back(), std::wstring(c_folder) + L"\\");
    EXPECT_THROW(
        {
            const OutOfMemory outOfMemory;
            GetUninstallerTempFolderPath();
        },
        std::bad_alloc);
}

// What somebody else has put into the folder's place before the run.
struct Planted
{
    const char* name;
    std::function<void(FakeFileSystem&)> plant;
};

// A folder of somebody else's, who may deny this process everything, with a link and a file in it.
void PlantFolder(FakeFileSystem& files, const std::wstring& path, ACCESS_MASK rights)
{
    files.AddFile(path + L"\\deep\\planted");
    files.AddReparsePoint(path + L"\\link", IO_REPARSE_TAG_MOUNT_POINT, L"C:\\Windows\\System32");
    for (const wchar_t* const entry : {L"", L"\\deep", L"\\deep\\planted", L"\\link"})
    {
        files.GiveAway(path + entry, rights);
    }
}

const Planted c_planted[] = {
    {"product_folder", [](FakeFileSystem& files) { PlantFolder(files, c_product, FILE_ALL_ACCESS); }},
    {"folder", [](FakeFileSystem& files) { PlantFolder(files, c_folder, FILE_ALL_ACCESS); }},
    {"product_folder_that_denies_everything", [](FakeFileSystem& files) { PlantFolder(files, c_product, 0); }},
    {"folder_that_denies_everything", [](FakeFileSystem& files) { PlantFolder(files, c_folder, 0); }},
    {"link_as_product_folder",
     [](FakeFileSystem& files) {
         files.AddReparsePoint(c_product, IO_REPARSE_TAG_MOUNT_POINT, L"C:\\Windows\\System32");
     }},
    {"link_as_folder",
     [](FakeFileSystem& files) { files.AddReparsePoint(c_folder, IO_REPARSE_TAG_SYMLINK, L"C:\\Windows\\System32"); }},
    {"link_that_is_seen_in_its_parent_alone",
     [](FakeFileSystem& files) {
         files.AddReparsePoint(c_folder, IO_REPARSE_TAG_MOUNT_POINT, L"C:\\Windows\\System32");
         files.HideReparsePointOfOpened(c_folder);
     }},
    {"file",
     [](FakeFileSystem& files) {
         files.AddFile(c_folder);
         files.GiveAway(c_folder);
     }},
    {"hard_link",
     [](FakeFileSystem& files) {
         files.AddHardLink(c_folder, c_bystander);
         files.GiveAway(c_folder);
     }},
};

class PlantedTempFolderTest : public UninstallerTempFolderTest, public testing::WithParamInterface<Planted>
{
};

TEST_P(PlantedTempFolderTest, Is_removed_and_made_anew)
{
    GetParam().plant(files);

    ExpectPrivate();

    for (const wchar_t* const planted : {L"\\deep", L"\\link", L"\\file"})
    {
        EXPECT_FALSE(files.Has(c_product + std::wstring(planted)) || files.Has(c_folder + std::wstring(planted)));
    }
    for (const wchar_t* const folder : {c_product, c_folder})
    {
        EXPECT_EQ(GetFileAttributesW(folder), static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY)) << "no link any more";
    }
    EXPECT_EQ(files.ContentOf(c_bystander), "content");
    EXPECT_EQ(clock.Sleeps(), Pauses{});
}

INSTANTIATE_TEST_SUITE_P(UninstallerTempFolder, PlantedTempFolderTest, testing::ValuesIn(c_planted),
                         [](const auto& planted) { return std::string(planted.param.name); });

// WIL's removal of trees empties the target of a link that it is given; only its stand-in refuses it.
TEST_F(UninstallerTempFolderTest, A_link_in_its_place_is_not_removed_as_a_tree)
{
    files.AddReparsePoint(c_folder, IO_REPARSE_TAG_MOUNT_POINT, L"C:\\Windows\\System32");
    const Fake<&CreateFileW> open = [&](LPCWSTR path, DWORD access, auto... others) {
        EXPECT_FALSE((access & DELETE) != 0 && std::wstring_view(path).ends_with(c_folder));
        return open.Hidden(path, access, others...);
    };

    ExpectPrivate();
}

TEST_F(UninstallerTempFolderTest, Of_somebody_else_stays_where_it_cannot_be_removed)
{
    PlantFolder(files, c_folder, 0);
    privileges.restore = FakePrivileges::State::NotHeld;

    ExpectRefused(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));

    EXPECT_TRUE(files.Has(std::wstring(c_folder) + L"\\deep\\planted"));
}

TEST_F(UninstallerTempFolderTest, Is_trusted_when_Local_System_or_the_administrators_own_it)
{
    const wchar_t* owner = L"O:SY";
    const Fake<&GetSecurityInfo> security = [&](HANDLE, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID* sid, PSID*, PACL*,
                                                PACL*, PSECURITY_DESCRIPTOR* descriptor) -> DWORD {
        BOOL isDefault = FALSE;
        EXPECT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(owner, SDDL_REVISION_1, descriptor, nullptr));
        EXPECT_TRUE(GetSecurityDescriptorOwner(*descriptor, sid, &isDefault));
        return ERROR_SUCCESS;
    };

    ExpectPrivate();
    owner = L"O:BA";
    ExpectPrivate();
    owner = L"O:WD";
    ExpectRefused(E_ACCESSDENIED);
}

TEST_F(UninstallerTempFolderTest, Of_somebody_else_each_time_that_it_was_removed_is_not_used)
{
    const Fake<&CreateDirectoryW> create = [&](LPCWSTR path, LPSECURITY_ATTRIBUTES attributes) -> BOOL {
        if (std::wstring_view(path).ends_with(c_folder) && !files.Has(c_folder))
        {
            files.AddFolder(c_folder);
            files.GiveAway(c_folder);
        }
        return create.Hidden(path, attributes);
    };

    ExpectRefused(E_ACCESSDENIED);
}

} // namespace
