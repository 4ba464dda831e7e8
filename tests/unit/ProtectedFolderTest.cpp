#include "Installer/ProtectedFolder.h"

#include "support/common/DirectoryLink.h"
#include "support/common/ImportTableFake.h"
#include "support/unit/Journal.h"
#include "support/unit/PathLimits.h"
#include "support/unit/TestFolder.h"

#include <windows.h>

#include <shlobj.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cwchar>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>

namespace
{

using namespace Testing;
using namespace std::string_literals;
using Installer::IsProtectedFolder;

struct KnownFolder
{
    const KNOWNFOLDERID* id;
    const char* name;
    const wchar_t* path; // below the test's own folder
};

const KnownFolder c_knownFolders[]{
    {&FOLDERID_Windows, "Windows", L"Windows"},
    {&FOLDERID_System, "System", L"Windows\\System"},
    {&FOLDERID_SystemX86, "SystemX86", L"Windows\\SystemX86"},
    {&FOLDERID_ProgramFiles, "ProgramFiles", L"Programs\\Files"},
    {&FOLDERID_ProgramFilesX86, "ProgramFilesX86", L"Programs\\FilesX86"},
    {&FOLDERID_ProgramFilesCommon, "ProgramFilesCommon", L"Programs\\Common"},
    {&FOLDERID_ProgramFilesCommonX86, "ProgramFilesCommonX86", L"Programs\\CommonX86"},
    {&FOLDERID_ProgramData, "ProgramData", L"Data"},
    {&FOLDERID_UserProfiles, "UserProfiles", L"Users"},
    {&FOLDERID_Profile, "Profile", L"Elsewhere\\Me"},
    {&FOLDERID_LocalAppData, "LocalAppData", L"Elsewhere\\Me\\App\\Local"},
    {&FOLDERID_RoamingAppData, "RoamingAppData", L"Elsewhere\\Me\\App\\Roaming"},
    {&FOLDERID_Public, "Public", L"Elsewhere\\Public"},
};

// The question where a folder is, or where it usually is, as the journal has it.
std::string Ask(const char* folder, const char* flags = "0x4000")
{
    return "SHGetKnownFolderPath("s + folder + ", " + flags + ")";
}
constexpr char c_usually[] = "0x4400";

// Windows' own folders, moved below a folder of the test's own.
class ProtectedFolderTest : public testing::Test
{
protected:
    ProtectedFolderTest()
    {
        for (const KnownFolder& folder : c_knownFolders)
        {
            root.AddFolder(folder.path);
        }
    }

    TestFolder root;
    Journal journal;
    const KNOWNFOLDERID* known = nullptr;                          // the only one that this Windows has
    std::function<DWORD(std::wstring_view)> openError = [](auto) { // of what cannot be opened
        return DWORD{ERROR_SUCCESS};
    };

private:
    HRESULT Find(REFKNOWNFOLDERID id, DWORD flags, PWSTR* path)
    {
        *path = nullptr;
        const auto* const folder =
            std::ranges::find_if(c_knownFolders, [&](const KnownFolder& its) { return *its.id == id; });
        if (folder == std::end(c_knownFolders) || (known != nullptr && id != *known))
        {
            return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
        }
        const auto failure = static_cast<HRESULT>(journal.Add("SHGetKnownFolderPath", folder->name, Mask(flags)));
        if (FAILED(failure))
        {
            return failure;
        }
        const std::wstring whole = root / folder->path;
        *path = static_cast<PWSTR>(CoTaskMemAlloc((whole.size() + 1) * sizeof(wchar_t)));
        std::wmemcpy(*path, whole.c_str(), whole.size() + 1);
        return S_OK;
    }

    Fake<&SHGetKnownFolderPath> m_find = [this](REFKNOWNFOLDERID id, DWORD flags, HANDLE token, PWSTR* path) {
        EXPECT_EQ(token, nullptr);
        return Find(id, flags, path);
    };
    Fake<&CreateFileW> m_open = [this](LPCWSTR path, auto... others) -> HANDLE {
        if (const DWORD error = openError(path))
        {
            SetLastError(error);
            return INVALID_HANDLE_VALUE;
        }
        return Fake<&CreateFileW>::Real(path, others...);
    };
};

class KnownFolderTest : public ProtectedFolderTest, public testing::WithParamInterface<KnownFolder>
{
protected:
    KnownFolderTest() { known = GetParam().id; }

    std::wstring Folder() const { return root / GetParam().path; }
};

INSTANTIATE_TEST_SUITE_P(ProtectedFolderTest, KnownFolderTest, testing::ValuesIn(c_knownFolders),
                         [](const auto& folder) { return std::string(folder.param.name); });

TEST_P(KnownFolderTest, Is_protected_however_it_is_written_and_behind_a_link)
{
    const std::wstring folder = Folder();
    std::wstring upper = folder;
    CharUpperW(upper.data());
    std::wstring slashes = folder;
    std::ranges::replace(slashes, L'\\', L'/');
    const std::wstring link = root / L"link";
    ASSERT_TRUE(CreateDirectoryLink(link, folder));

    for (const std::wstring& spelling :
         {folder, folder + L"\\", upper, slashes + L"/", L"\\\\?\\" + folder, L"//?/" + slashes + L"/",
          L"\\\\.\\" + folder, folder + L"\\.\\..\\" + folder.substr(folder.rfind(L'\\') + 1), link, link + L"\\"})
    {
        EXPECT_TRUE(IsProtectedFolder(spelling)) << spelling;
    }
}

TEST_P(KnownFolderTest, Protects_what_holds_it)
{
    const std::wstring parent = Folder().substr(0, Folder().rfind(L'\\'));

    EXPECT_TRUE(IsProtectedFolder(parent));
    EXPECT_TRUE(IsProtectedFolder(parent + L"\\"));
    EXPECT_TRUE(IsProtectedFolder(root.Path()));
}

TEST_P(KnownFolderTest, Protects_what_is_in_it_only_when_it_is_Windows_and_nothing_beside_it)
{
    const std::wstring inside = Folder() + (known == &FOLDERID_UserProfiles ? L"\\me\\Velmora" : L"\\Velmora");

    // No product lives in Windows itself.
    EXPECT_EQ(IsProtectedFolder(inside), known == &FOLDERID_Windows);
    EXPECT_EQ(IsProtectedFolder(inside + L"\\"), known == &FOLDERID_Windows);
    EXPECT_EQ(IsProtectedFolder(Folder() + L"\\.hidden\\Velmora"), known == &FOLDERID_Windows);
    EXPECT_FALSE(IsProtectedFolder(Folder() + L" 2"));
    EXPECT_FALSE(IsProtectedFolder(Folder().substr(0, Folder().size() - 1)));
}

TEST_F(ProtectedFolderTest, Every_users_profile_is_protected_but_not_what_is_in_it)
{
    EXPECT_TRUE(IsProtectedFolder(root / L"Users\\Somebody"));
    EXPECT_TRUE(IsProtectedFolder(root / L"USERS\\Somebody\\"));
    EXPECT_FALSE(IsProtectedFolder(root / L"Users\\Somebody\\Velmora"));
}

TEST_F(ProtectedFolderTest, The_root_of_a_volume_is_protected)
{
    known = &GUID_NULL;

    EXPECT_TRUE(IsProtectedFolder(root.Path().substr(0, 3)));
    EXPECT_TRUE(IsProtectedFolder(root.Path().substr(0, 3) + L".\\"));
    EXPECT_FALSE(IsProtectedFolder(root / L"Velmora"));
}

TEST_F(ProtectedFolderTest, A_volume_that_is_mounted_in_a_folder_is_protected)
{
    for (const std::wstring& folder : {L"Volume"s, std::wstring(200, L'a') + L"\\" + std::wstring(200, L'b')})
    {
        const std::wstring volume = L"\\\\?\\" + root.AddFolder(folder) + L"\\";
        const PathLimits limits;
        // There must be room for the path that is asked about, however short the answer is.
        Fake<&GetVolumePathNameW> mounted = [&](std::wstring_view path, LPWSTR name, DWORD size) -> BOOL {
            EXPECT_GE(size, DWORD{MAX_PATH});
            EXPECT_TRUE((std::wstring(path) + L"\\").starts_with(volume));
            if (size <= std::max(path.size() + 1, volume.size()))
            {
                SetLastError(ERROR_FILENAME_EXCED_RANGE);
                return FALSE;
            }
            name[volume.copy(name, volume.size())] = L'\0';
            return TRUE;
        };

        EXPECT_TRUE(IsProtectedFolder(root / folder));
        EXPECT_TRUE(IsProtectedFolder(root / folder + L"\\"));
        EXPECT_FALSE(IsProtectedFolder(root / folder + L"\\Velmora"));
    }
}

TEST_P(KnownFolderTest, On_a_server_that_cannot_be_reached_protects_itself_alone)
{
    for (const DWORD error : std::initializer_list<DWORD>{ERROR_BAD_NETPATH, ERROR_BAD_NET_NAME,
                                                          ERROR_NO_SUCH_LOGON_SESSION, ERROR_NETWORK_UNREACHABLE,
                                                          ERROR_LOGON_FAILURE, ERROR_ACCESS_DENIED, ERROR_NO_NETWORK})
    {
        openError = [&](std::wstring_view path) { return path.find(Folder()) == path.npos ? ERROR_SUCCESS : error; };

        EXPECT_FALSE(IsProtectedFolder(root / L"Velmora")) << error;
        EXPECT_TRUE(IsProtectedFolder(Folder())) << error;
        EXPECT_TRUE(IsProtectedFolder(root.Path())) << error;
    }
    // Windows is not asked to verify that the folder is there.
    EXPECT_THAT(journal.All(), testing::Each(Ask(GetParam().name)));
}

TEST_P(KnownFolderTest, That_is_not_told_protects_where_it_usually_is)
{
    for (const HRESULT failure :
         {E_FAIL, E_INVALIDARG, E_OUTOFMEMORY, E_ACCESSDENIED, HRESULT_FROM_WIN32(ERROR_NO_NETWORK)})
    {
        journal.Fail(Ask(GetParam().name), failure);
        EXPECT_TRUE(IsProtectedFolder(Folder())) << failure;
        EXPECT_FALSE(IsProtectedFolder(root / L"Velmora")) << failure;

        // Nothing when that is not told either.
        journal.Fail(Ask(GetParam().name, c_usually), failure, 2);
        EXPECT_FALSE(IsProtectedFolder(root / L"Velmora")) << failure;
        EXPECT_FALSE(IsProtectedFolder(Folder())) << failure;
    }
}

TEST_F(ProtectedFolderTest, Each_known_folder_is_asked_for_once)
{
    IsProtectedFolder(root / L"Velmora");

    Calls expected;
    std::ranges::transform(c_knownFolders, std::back_inserter(expected),
                           [](const KnownFolder& folder) { return Ask(folder.name); });
    EXPECT_THAT(journal.All(), testing::UnorderedElementsAreArray(expected));
}

TEST_F(ProtectedFolderTest, The_root_of_a_volume_that_the_mount_manager_does_not_know_is_protected)
{
    Fake<&GetVolumePathNameW> unknown = Fails(ERROR_INVALID_FUNCTION);
    Fake<&GetFinalPathNameByHandleW> objectNames = [&](HANDLE file, LPWSTR name, DWORD size, DWORD kind) -> DWORD {
        if (kind == VOLUME_NAME_DOS)
        {
            SetLastError(ERROR_INVALID_FUNCTION);
            return 0;
        }
        const DWORD length = Fake<&GetFinalPathNameByHandleW>::Real(file, name, size, VOLUME_NAME_DOS);
        const std::wstring object = L"\\Device\\RamDisk" + std::wstring(name, length).substr(6);
        std::wmemcpy(name, object.c_str(), object.size() + 1);
        return static_cast<DWORD>(object.size());
    };

    known = &GUID_NULL;
    EXPECT_TRUE(IsProtectedFolder(root.Path().substr(0, 3)));
    known = nullptr;
    EXPECT_FALSE(IsProtectedFolder(root / L"Velmora"));
    EXPECT_TRUE(IsProtectedFolder(root / L"Windows\\Velmora"));
}

TEST_F(ProtectedFolderTest, A_folder_that_cannot_be_examined_is_protected)
{
    Fake<&GetFinalPathNameByHandleW> failing = Fails(ERROR_ACCESS_DENIED);

    EXPECT_TRUE(IsProtectedFolder(root.AddFolder(L"Velmora")));
}

TEST_F(ProtectedFolderTest, An_exception_protects)
{
    Fake<&GetVolumePathNameW> failing = [](LPCWSTR, LPWSTR, DWORD) -> BOOL { throw 42; };

    EXPECT_TRUE(IsProtectedFolder(root.AddFolder(L"Velmora")));
}

} // namespace
