#include "Installer/ProtectedFolder.h"

#include "support/DirectoryLink.h"
#include "support/ImportTableFake.h"
#include "support/PathLimits.h"
#include "support/TestFolder.h"

#include <windows.h>

#include <shlobj.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <cwctype>
#include <initializer_list>
#include <iterator>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace
{

using namespace Testing;
using Installer::IsProtectedFolder;

struct KnownFolder
{
    const KNOWNFOLDERID* id;
    const wchar_t* name;
};

const KnownFolder c_knownFolders[]{
    {&FOLDERID_Windows, L"Windows"},
    {&FOLDERID_System, L"Windows\\System"},
    {&FOLDERID_SystemX86, L"Windows\\SystemX86"},
    {&FOLDERID_ProgramFiles, L"Programs\\Files"},
    {&FOLDERID_ProgramFilesX86, L"Programs\\FilesX86"},
    {&FOLDERID_ProgramFilesCommon, L"Programs\\Common"},
    {&FOLDERID_ProgramFilesCommonX86, L"Programs\\CommonX86"},
    {&FOLDERID_ProgramData, L"Data"},
    {&FOLDERID_UserProfiles, L"Users"},
    {&FOLDERID_Profile, L"Elsewhere\\Me"},
    {&FOLDERID_LocalAppData, L"Elsewhere\\Me\\App\\Local"},
    {&FOLDERID_RoamingAppData, L"Elsewhere\\Me\\App\\Roaming"},
    {&FOLDERID_Public, L"Elsewhere\\Public"},
};

void PrintTo(const KnownFolder& folder, std::ostream* stream)
{
    for (const wchar_t* name = folder.name; *name != L'\0'; ++name)
    {
        *stream << static_cast<char>(*name);
    }
}

// Windows' own folders, moved below a folder of the test's own.
class ProtectedFolderTest : public testing::Test
{
protected:
    ProtectedFolderTest()
    {
        for (const KnownFolder& folder : c_knownFolders)
        {
            root.AddFolder(folder.name);
        }
    }

    std::wstring Find(const KNOWNFOLDERID& id) const
    {
        for (const KnownFolder& folder : c_knownFolders)
        {
            if (id == *folder.id && (known == nullptr || id == *known))
            {
                return root / folder.name;
            }
        }
        return {};
    }

    TestFolder root;
    const KNOWNFOLDERID* known = nullptr; // the only one that Windows tells
    // Why that one, or each when there is none, is not where it should be: known only to a question that verifies it.
    HRESULT unreachable = S_OK;
    // Why the current places are not told, or not even the usual ones.
    HRESULT untold = S_OK;
    HRESULT untoldDefault = S_OK;
    HRESULT absence = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    std::vector<DWORD> askedWith;
    Fake<&SHGetKnownFolderPath> find = [this](REFKNOWNFOLDERID id, DWORD flags, HANDLE token, PWSTR* path) -> HRESULT {
        const DWORD allowed = KF_FLAG_DONT_VERIFY | KF_FLAG_DEFAULT_PATH;
        EXPECT_EQ(flags & ~allowed, 0U);
        EXPECT_EQ(token, nullptr);
        askedWith.push_back(flags);
        const std::wstring folder = Find(id);
        HRESULT result = folder.empty() ? absence : (flags & KF_FLAG_DEFAULT_PATH) != 0 ? untoldDefault : untold;
        if (SUCCEEDED(result) && (flags & KF_FLAG_DONT_VERIFY) == 0)
        {
            result = unreachable;
        }
        *path = nullptr;
        if (FAILED(result))
        {
            return result;
        }
        *path = static_cast<PWSTR>(CoTaskMemAlloc((folder.size() + 1) * sizeof(wchar_t)));
        std::wmemcpy(*path, folder.c_str(), folder.size() + 1);
        return S_OK;
    };
};

class KnownFolderTest : public ProtectedFolderTest, public testing::WithParamInterface<KnownFolder>
{
protected:
    KnownFolderTest() { known = GetParam().id; }

    std::wstring Folder() const { return root / GetParam().name; }
};

TEST_P(KnownFolderTest, is_protected_however_it_is_written)
{
    std::wstring upper = Folder();
    std::ranges::transform(upper, upper.begin(), [](wchar_t character) { return std::towupper(character); });
    std::wstring slashes = Folder();
    std::ranges::replace(slashes, L'\\', L'/');

    EXPECT_TRUE(IsProtectedFolder(Folder()));
    EXPECT_TRUE(IsProtectedFolder(Folder() + L"\\"));
    EXPECT_TRUE(IsProtectedFolder(upper));
    EXPECT_TRUE(IsProtectedFolder(slashes + L"/"));
    EXPECT_TRUE(IsProtectedFolder(L"\\\\?\\" + Folder()));
    EXPECT_TRUE(IsProtectedFolder(L"//?/" + slashes + L"/"));
    EXPECT_TRUE(IsProtectedFolder(L"\\\\.\\" + Folder()));
    EXPECT_TRUE(IsProtectedFolder(Folder() + L"\\.\\..\\" + Folder().substr(Folder().rfind(L'\\') + 1)));
}

TEST_P(KnownFolderTest, is_protected_behind_a_link)
{
    const std::wstring link = root / L"link";
    ASSERT_TRUE(CreateDirectoryLink(link, Folder()));

    EXPECT_TRUE(IsProtectedFolder(link));
    EXPECT_TRUE(IsProtectedFolder(link + L"\\"));
}

TEST_P(KnownFolderTest, protects_what_holds_it)
{
    const std::wstring parent = Folder().substr(0, Folder().rfind(L'\\'));

    EXPECT_TRUE(IsProtectedFolder(parent));
    EXPECT_TRUE(IsProtectedFolder(parent + L"\\"));
    EXPECT_TRUE(IsProtectedFolder(root.Path()));
}

TEST_P(KnownFolderTest, protects_what_is_in_it_only_when_it_is_Windows_and_nothing_beside_it)
{
    const std::wstring inside = Folder() + (known == &FOLDERID_UserProfiles ? L"\\me\\Velmora" : L"\\Velmora");

    // No product lives in Windows itself.
    EXPECT_EQ(IsProtectedFolder(inside), known == &FOLDERID_Windows);
    EXPECT_EQ(IsProtectedFolder(inside + L"\\"), known == &FOLDERID_Windows);
    EXPECT_EQ(IsProtectedFolder(Folder() + L"\\.hidden\\Velmora"), known == &FOLDERID_Windows);
    EXPECT_FALSE(IsProtectedFolder(Folder() + L" 2"));
    EXPECT_FALSE(IsProtectedFolder(Folder().substr(0, Folder().size() - 1)));
}

INSTANTIATE_TEST_SUITE_P(ProtectedFolderTest, KnownFolderTest, testing::ValuesIn(c_knownFolders));

TEST_F(ProtectedFolderTest, every_users_profile_is_protected_but_not_what_is_in_it)
{
    EXPECT_TRUE(IsProtectedFolder(root / L"Users\\Somebody"));
    EXPECT_TRUE(IsProtectedFolder(root / L"USERS\\Somebody\\"));
    EXPECT_FALSE(IsProtectedFolder(root / L"Users\\Somebody\\Velmora"));
}

TEST_F(ProtectedFolderTest, the_root_of_a_volume_is_protected)
{
    known = &GUID_NULL;

    EXPECT_TRUE(IsProtectedFolder(root.Path().substr(0, 3)));
    EXPECT_TRUE(IsProtectedFolder(root.Path().substr(0, 3) + L".\\"));
    EXPECT_FALSE(IsProtectedFolder(root / L"Velmora"));
}

TEST_F(ProtectedFolderTest, a_volume_that_is_mounted_in_a_folder_is_protected)
{
    const std::wstring volume = root.AddFolder(L"Volume");
    Fake<&GetVolumePathNameW> mounted = [&](LPCWSTR path, LPWSTR name, DWORD size) -> BOOL {
        EXPECT_EQ(std::wstring(path).substr(0, volume.size() + 4), L"\\\\?\\" + volume);
        EXPECT_GE(size, DWORD{MAX_PATH});
        std::wmemcpy(name, (std::wstring(path).substr(0, volume.size() + 4) + L"\\").c_str(), volume.size() + 6);
        return TRUE;
    };

    EXPECT_TRUE(IsProtectedFolder(volume));
    EXPECT_TRUE(IsProtectedFolder(volume + L"\\"));
    EXPECT_FALSE(IsProtectedFolder(volume + L"\\Velmora"));
}

TEST_F(ProtectedFolderTest, a_folder_whose_volume_is_not_told_can_still_be_compared)
{
    Fake<&GetVolumePathNameW> failing = [](LPCWSTR, LPWSTR, DWORD) -> BOOL { return FALSE; };

    EXPECT_FALSE(IsProtectedFolder(root / L"Programs\\Files\\Velmora"));
    EXPECT_TRUE(IsProtectedFolder(root / L"Programs\\Files"));
}

TEST_P(KnownFolderTest, is_protected_when_it_can_only_be_looked_at_once)
{
    unsigned opened = 0;
    Fake<&CreateFileW> open = [&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                  DWORD disposition, DWORD flags, HANDLE model) -> HANDLE {
        if (path == L"\\\\?\\" + Folder() && ++opened > 1)
        {
            SetLastError(ERROR_ACCESS_DENIED);
            return INVALID_HANDLE_VALUE;
        }
        return Fake<&CreateFileW>::Real(path, access, share, security, disposition, flags, model);
    };

    EXPECT_TRUE(IsProtectedFolder(Folder()));
}

TEST_P(KnownFolderTest, on_a_server_that_cannot_be_reached_protects_itself_alone)
{
    for (const DWORD error : std::initializer_list<DWORD>{ERROR_BAD_NETPATH, ERROR_BAD_NET_NAME,
                                                          ERROR_NO_SUCH_LOGON_SESSION, ERROR_NETWORK_UNREACHABLE,
                                                          ERROR_LOGON_FAILURE, ERROR_ACCESS_DENIED, ERROR_NO_NETWORK})
    {
        unreachable = HRESULT_FROM_WIN32(error);
        // Nothing on it can be opened either.
        Fake<&CreateFileW> open = [&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                      DWORD disposition, DWORD flags, HANDLE model) -> HANDLE {
            if (std::wstring_view(path).find(Folder()) != std::wstring_view::npos)
            {
                SetLastError(error);
                return INVALID_HANDLE_VALUE;
            }
            return Fake<&CreateFileW>::Real(path, access, share, security, disposition, flags, model);
        };

        EXPECT_FALSE(IsProtectedFolder(root / L"Velmora")) << error;
        EXPECT_TRUE(IsProtectedFolder(Folder())) << error;
        EXPECT_TRUE(IsProtectedFolder(root.Path())) << error;
    }
}

TEST_P(KnownFolderTest, that_is_not_told_protects_where_it_usually_is)
{
    for (const HRESULT failure : {E_FAIL, E_OUTOFMEMORY, E_ACCESSDENIED, HRESULT_FROM_WIN32(ERROR_NO_NETWORK)})
    {
        untold = failure;
        EXPECT_TRUE(IsProtectedFolder(Folder())) << failure;
        EXPECT_FALSE(IsProtectedFolder(root / L"Velmora")) << failure;
    }
}

TEST_P(KnownFolderTest, that_is_not_told_at_all_protects_nothing)
{
    for (const HRESULT failure :
         {E_FAIL, E_INVALIDARG, E_OUTOFMEMORY, E_ACCESSDENIED, HRESULT_FROM_WIN32(ERROR_NO_NETWORK)})
    {
        untold = failure;
        untoldDefault = failure;
        EXPECT_FALSE(IsProtectedFolder(root / L"Velmora")) << failure;
        EXPECT_FALSE(IsProtectedFolder(Folder())) << failure;
    }
}

TEST_F(ProtectedFolderTest, what_this_Windows_does_not_have_protects_nothing)
{
    known = &GUID_NULL;

    EXPECT_FALSE(IsProtectedFolder(root / L"Velmora"));
}

TEST_F(ProtectedFolderTest, each_known_folder_is_asked_for_once)
{
    IsProtectedFolder(root / L"Velmora");

    EXPECT_EQ(askedWith, std::vector<DWORD>(std::size(c_knownFolders), KF_FLAG_DONT_VERIFY));
}

TEST_F(ProtectedFolderTest, a_folder_may_have_a_long_path)
{
    const std::wstring name = std::wstring(200, L'a') + L"\\" + std::wstring(200, L'b');
    root.AddFolder(L"Windows\\" + name);
    root.AddFolder(name);
    const PathLimits limits;

    EXPECT_TRUE(IsProtectedFolder(root / (L"Windows\\" + name)));
    EXPECT_FALSE(IsProtectedFolder(root / name));
    EXPECT_FALSE(IsProtectedFolder(root / name + L"\\"));
}

TEST_F(ProtectedFolderTest, a_volume_is_asked_for_a_long_path_with_room_for_it)
{
    const std::wstring volume = root.AddFolder(std::wstring(200, L'a') + L"\\" + std::wstring(200, L'b'));
    const PathLimits limits;
    unsigned asked = 0;
    Fake<&GetVolumePathNameW> mounted = [&](LPCWSTR path, LPWSTR name, DWORD size) -> BOOL {
        ++asked;
        const std::wstring answer = std::wstring(path) + L'\\';
        if (answer.size() >= size)
        {
            SetLastError(ERROR_FILENAME_EXCED_RANGE);
            return FALSE;
        }
        std::wmemcpy(name, answer.c_str(), answer.size() + 1);
        return TRUE;
    };

    EXPECT_TRUE(IsProtectedFolder(volume));

    EXPECT_EQ(asked, 1U);
}

TEST_F(ProtectedFolderTest, the_root_of_a_volume_that_the_mount_manager_does_not_know_is_protected)
{
    Fake<&GetVolumePathNameW> unknown = [](LPCWSTR, LPWSTR, DWORD) -> BOOL {
        SetLastError(ERROR_INVALID_FUNCTION);
        return FALSE;
    };
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

TEST_F(ProtectedFolderTest, a_folder_that_cannot_be_examined_is_protected)
{
    Fake<&GetFinalPathNameByHandleW> failing = [](HANDLE, LPWSTR, DWORD, DWORD) -> DWORD {
        SetLastError(ERROR_ACCESS_DENIED);
        return 0;
    };

    EXPECT_TRUE(IsProtectedFolder(root.AddFolder(L"Velmora")));
}

TEST_F(ProtectedFolderTest, an_exception_protects)
{
    Fake<&GetVolumePathNameW> failing = [](LPCWSTR, LPWSTR, DWORD) -> BOOL { throw 42; };

    EXPECT_TRUE(IsProtectedFolder(root.AddFolder(L"Velmora")));
}

} // namespace
