#include "Installer/ProtectedFolder.h"

#include "support/DirectoryLink.h"
#include "support/ImportTableFake.h"
#include "support/TestFolder.h"

#include <windows.h>

#include <shlobj.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <cwctype>
#include <ostream>
#include <string>

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
    const KNOWNFOLDERID* known = nullptr;  // the only one that Windows tells
    const KNOWNFOLDERID* untold = nullptr; // the one that it fails to tell
    HRESULT absence = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    Fake<&SHGetKnownFolderPath> find = [this](REFKNOWNFOLDERID id, DWORD flags, HANDLE token, PWSTR* path) -> HRESULT {
        EXPECT_EQ(flags, 0U);
        EXPECT_EQ(token, nullptr);
        const std::wstring folder = Find(id);
        const bool fails = untold != nullptr && id == *untold;
        if (folder.empty() || fails)
        {
            *path = nullptr;
            return fails ? E_OUTOFMEMORY : absence;
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
        EXPECT_EQ(std::wstring(path).substr(0, volume.size()), volume);
        EXPECT_EQ(size, DWORD{MAX_PATH});
        std::wmemcpy(name, (volume + L"\\").c_str(), volume.size() + 2);
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
        if (path == Folder() && ++opened > 1)
        {
            SetLastError(ERROR_ACCESS_DENIED);
            return INVALID_HANDLE_VALUE;
        }
        return Fake<&CreateFileW>::Real(path, access, share, security, disposition, flags, model);
    };

    EXPECT_TRUE(IsProtectedFolder(Folder()));
}

TEST_F(ProtectedFolderTest, every_folder_is_protected_while_Windows_does_not_tell_which_are)
{
    for (const KnownFolder& folder : c_knownFolders)
    {
        untold = folder.id;
        EXPECT_TRUE(IsProtectedFolder(root / L"Velmora")) << testing::PrintToString(folder);
    }
}

TEST_F(ProtectedFolderTest, what_this_Windows_does_not_have_protects_nothing)
{
    known = &GUID_NULL;
    for (const HRESULT result :
         {HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), E_INVALIDARG})
    {
        absence = result;
        EXPECT_FALSE(IsProtectedFolder(root / L"Velmora")) << result;
    }
    absence = HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
    EXPECT_TRUE(IsProtectedFolder(root / L"Velmora"));
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
