#include "Installer/CanonicalPath.h"

#include "support/DirectoryLink.h"
#include "support/FailureLog.h"
#include "support/ImportTableFake.h"
#include "support/TestFolder.h"
#include "support/Text.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <map>
#include <string>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

// What is there of a path, and how the file system names it.
struct File
{
    std::wstring name{};
    DWORD openError = ERROR_SUCCESS;
    DWORD nameError = ERROR_SUCCESS;
    std::wstring objectName{}; // asked for when the other is not found
    DWORD objectNameError = ERROR_SUCCESS;
};

// A file system with the files that a test puts into it; all else is absent.
class CanonicalPathTest : public testing::Test
{
protected:
    ~CanonicalPathTest() override
    {
        EXPECT_THAT(m_opened, IsEmpty()) << "something was left open";
        EXPECT_THAT(failures.Entries(), IsEmpty());
    }

    std::map<std::wstring, File> files;
    DWORD absence = ERROR_FILE_NOT_FOUND;

    // Every call so far: "open <path>", "name <kind> <size>", "close".
    std::vector<std::string> calls;
    FailureLog failures;

private:
    // A path as a test writes it. Windows gets it with a prefix, so that it may be of any length.
    static std::wstring WithoutPrefix(std::wstring path)
    {
        EXPECT_TRUE(path.empty() || path.starts_with(L"\\\\?\\")) << path;
        if (path.starts_with(L"\\\\?\\UNC\\"))
        {
            return path.replace(0, 8, L"\\\\");
        }
        return path.size() > 5 && path[5] == L':' ? path.substr(4) : path;
    }

    HANDLE Open(const std::wstring& path)
    {
        calls.push_back("open " + Narrow(path));
        const auto file = files.find(path);
        if (file == files.end() || file->second.openError != ERROR_SUCCESS)
        {
            SetLastError(file == files.end() ? absence : file->second.openError);
            return INVALID_HANDLE_VALUE;
        }
        const auto handle = reinterpret_cast<HANDLE>(m_nextHandle += 4);
        m_opened[handle] = file->second;
        return handle;
    }

    DWORD ReadName(HANDLE handle, wchar_t* name, DWORD size, DWORD kind)
    {
        calls.push_back("name " + std::to_string(kind) + " " + std::to_string(size));
        const File& file = m_opened.at(handle);
        const DWORD error = kind == VOLUME_NAME_NT ? file.objectNameError : file.nameError;
        if (error != ERROR_SUCCESS)
        {
            SetLastError(error);
            return 0;
        }
        const std::wstring& text = kind == VOLUME_NAME_NT ? file.objectName : file.name;
        const auto length = static_cast<DWORD>(text.size());
        if (length >= size)
        {
            return length + 1;
        }
        text.copy(name, length);
        name[length] = L'\0';
        return length;
    }

    std::map<HANDLE, File> m_opened;
    ULONG_PTR m_nextHandle = 0x5B000000;
    Fake<&CreateFileW> m_create = [this](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                         DWORD disposition, DWORD flags, HANDLE pattern) {
        EXPECT_EQ(access, DWORD{FILE_READ_ATTRIBUTES});
        EXPECT_EQ(sharing, DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE});
        EXPECT_EQ(security, nullptr);
        EXPECT_EQ(disposition, DWORD{OPEN_EXISTING});
        EXPECT_EQ(flags, DWORD{FILE_FLAG_BACKUP_SEMANTICS});
        EXPECT_EQ(pattern, nullptr);
        return Open(WithoutPrefix(path));
    };
    Fake<&GetFinalPathNameByHandleW> m_name = [this](HANDLE file, LPWSTR name, DWORD size, DWORD kind) {
        return ReadName(file, name, size, kind);
    };
    Fake<&CloseHandle> m_close = [this](HANDLE handle) -> BOOL {
        calls.emplace_back("close");
        return m_opened.erase(handle) == 1;
    };
};

TEST_F(CanonicalPathTest, keeps_the_prefix_of_a_name_without_a_drive)
{
    for (const wchar_t* const name : {L"\\\\?\\Volume{1}\\a.exe", L"\\\\?\\C"})
    {
        files[L"C:\\a.exe"] = {.name = name};

        EXPECT_EQ(GetCanonicalPath(L"C:\\a.exe"), name);
    }
}

TEST_F(CanonicalPathTest, of_a_file_is_the_name_of_its_handle)
{
    files[L"c:\\PROGRA~1\\A.EXE"] = {.name = L"\\\\?\\C:\\Program Files\\a.exe"};

    EXPECT_EQ(GetCanonicalPath(L"c:\\PROGRA~1\\A.EXE"), L"\\\\?\\C:\\Program Files\\a.exe");
    EXPECT_THAT(calls, ElementsAre("open c:\\PROGRA~1\\A.EXE", "name 0 260", "close"));
}

TEST_F(CanonicalPathTest, of_a_drive_is_its_root)
{
    files[L"c:\\"] = {.name = L"\\\\?\\C:\\"};

    EXPECT_EQ(GetCanonicalPath(L"c:\\"), L"\\\\?\\C:\\");
}

TEST_F(CanonicalPathTest, on_the_network_begins_with_the_server)
{
    files[L"X:\\a.exe"] = {.name = L"\\\\?\\UNC\\server\\share\\a.exe"};

    EXPECT_EQ(GetCanonicalPath(L"X:\\a.exe"), L"\\\\?\\UNC\\server\\share\\a.exe");
}

TEST_F(CanonicalPathTest, on_a_volume_without_a_letter_keeps_its_prefix)
{
    files[L"C:\\mount\\a.exe"] = {.name = L"\\\\?\\Volume{12}\\a.exe"};

    EXPECT_EQ(GetCanonicalPath(L"C:\\mount\\a.exe"), L"\\\\?\\Volume{12}\\a.exe");
}

TEST_F(CanonicalPathTest, of_something_that_only_has_an_object_name_is_that)
{
    // No letter and no folder leads to the volume; or the mount manager does not know it.
    for (const DWORD error : std::initializer_list<DWORD>{ERROR_PATH_NOT_FOUND, ERROR_INVALID_FUNCTION})
    {
        calls.clear();
        files[L"R:\\a.exe"] = {.nameError = error, .objectName = L"\\Device\\Volume5\\a.exe"};

        EXPECT_EQ(GetCanonicalPath(L"R:\\a.exe"), L"\\\\?\\GLOBALROOT\\Device\\Volume5\\a.exe") << error;
        EXPECT_THAT(calls, ElementsAre("open R:\\a.exe", "name 0 260", "name 2 260", "close"));
    }
}

TEST_F(CanonicalPathTest, of_what_is_not_there_on_such_a_volume_begins_with_its_object_name)
{
    files[L"R:\\"] = {.nameError = ERROR_INVALID_FUNCTION, .objectName = L"\\Device\\Volume5\\"};

    EXPECT_EQ(GetCanonicalPath(L"R:\\"), L"\\\\?\\GLOBALROOT\\Device\\Volume5\\");
    EXPECT_EQ(GetCanonicalPath(L"R:\\gone\\a.exe"), L"\\\\?\\GLOBALROOT\\Device\\Volume5\\gone\\a.exe");
}

TEST_F(CanonicalPathTest, is_the_same_for_other_ways_to_write_the_path)
{
    files[L"C:\\Velmora"] = files[L"\\\\?\\Volume{12}\\Velmora"] = {.name = L"\\\\?\\C:\\Velmora"};

    for (const wchar_t* const path : {L"C:/Velmora", L"//?/C:/Velmora", L"\\\\?\\C:\\Velmora", L"\\\\.\\C:\\Velmora",
                                      L"C:\\X\\..\\Velmora", L"\\\\?\\Volume{12}\\Velmora"})
    {
        EXPECT_EQ(GetCanonicalPath(path), L"\\\\?\\C:\\Velmora") << path;
    }
}

TEST_F(CanonicalPathTest, goes_back_to_the_volume)
{
    files[L"\\\\?\\Volume{12}\\"] = {.name = L"\\\\?\\D:\\"};

    EXPECT_EQ(GetCanonicalPath(L"\\\\?\\Volume{12}\\gone\\a.exe"), L"\\\\?\\D:\\gone\\a.exe");
}

TEST_F(CanonicalPathTest, has_a_separator_at_its_end_for_a_root_only)
{
    files[L"C:\\"] = {.name = L"\\\\?\\C:\\"};

    EXPECT_EQ(GetCanonicalPath(L"C:\\gone\\"), L"\\\\?\\C:\\gone");
    EXPECT_EQ(GetCanonicalPath(L"\\\\?\\C:\\gone\\\\"), L"\\\\?\\C:\\gone");
    EXPECT_EQ(GetCanonicalPath(L"Q:\\"), L"\\\\?\\Q:\\");
    EXPECT_EQ(GetCanonicalPath(L"Q:\\gone\\"), L"\\\\?\\Q:\\gone");
}

TEST_F(CanonicalPathTest, of_a_long_path_is_found)
{
    const std::wstring rest(300, L'x');
    files[L"C:\\" + rest] = {.name = L"\\\\?\\D:\\" + rest};

    EXPECT_EQ(GetCanonicalPath(L"C:\\" + rest), L"\\\\?\\D:\\" + rest);
}

TEST_F(CanonicalPathTest, fits_into_a_larger_buffer_when_it_is_long)
{
    const std::wstring rest(5000, L'x');
    files[L"C:\\long"] = {.name = L"\\\\?\\C:\\" + rest};

    EXPECT_EQ(GetCanonicalPath(L"C:\\long"), L"\\\\?\\C:\\" + rest);
    EXPECT_THAT(calls, ElementsAre("open C:\\long", "name 0 260", "name 0 5008", "close"));
}

TEST_F(CanonicalPathTest, is_read_again_only_when_it_did_not_fit)
{
    files[L"C:\\259"] = {.name = L"\\\\?\\C:\\" + std::wstring(252, L'x')};
    files[L"C:\\260"] = {.name = L"\\\\?\\C:\\" + std::wstring(253, L'x')};

    EXPECT_EQ(GetCanonicalPath(L"C:\\259"), L"\\\\?\\C:\\" + std::wstring(252, L'x'));
    EXPECT_THAT(calls, ElementsAre("open C:\\259", "name 0 260", "close"));
    calls.clear();
    EXPECT_EQ(GetCanonicalPath(L"C:\\260"), L"\\\\?\\C:\\" + std::wstring(253, L'x'));
    EXPECT_THAT(calls, ElementsAre("open C:\\260", "name 0 260", "name 0 261", "close"));
}

TEST_F(CanonicalPathTest, goes_as_far_as_there_is_something)
{
    files[L"c:\\"] = {.name = L"\\\\?\\C:\\"};
    files[L"c:\\REAL\\"] = {.name = L"\\\\?\\D:\\Target"};

    EXPECT_EQ(GetCanonicalPath(L"c:\\REAL\\gone\\Too\\a.exe"), L"\\\\?\\D:\\Target\\gone\\Too\\a.exe");
    EXPECT_THAT(calls, ElementsAre("open c:\\REAL\\gone\\Too\\a.exe", "open c:\\REAL\\gone\\Too\\",
                                   "open c:\\REAL\\gone\\", "open c:\\REAL\\", "name 0 260", "close"));
}

TEST_F(CanonicalPathTest, goes_back_to_the_root)
{
    files[L"c:\\"] = {.name = L"\\\\?\\C:\\"};

    EXPECT_EQ(GetCanonicalPath(L"c:\\gone\\a.exe"), L"\\\\?\\C:\\gone\\a.exe");
    EXPECT_EQ(GetCanonicalPath(L"c:\\a.exe"), L"\\\\?\\C:\\a.exe");
}

TEST_F(CanonicalPathTest, goes_back_to_the_share)
{
    files[L"\\\\SERVER\\Share\\"] = {.name = L"\\\\?\\UNC\\server\\share\\"};

    EXPECT_EQ(GetCanonicalPath(L"\\\\SERVER\\Share\\gone\\a.exe"), L"\\\\?\\UNC\\server\\share\\gone\\a.exe");
}

TEST_F(CanonicalPathTest, stays_as_it_is_when_nothing_is_there)
{
    EXPECT_EQ(GetCanonicalPath(L"Q:\\gone\\a.exe"), L"\\\\?\\Q:\\gone\\a.exe");
    EXPECT_THAT(calls, ElementsAre("open Q:\\gone\\a.exe", "open Q:\\gone\\", "open Q:\\"));
}

TEST_F(CanonicalPathTest, on_a_server_that_is_away_is_not_looked_for_on_this_machine)
{
    files[L"\\\\server\\"] = files[L"\\\\"] = files[L"\\\\?\\"] = {.name = L"\\\\?\\C:\\"};

    EXPECT_EQ(GetCanonicalPath(L"\\\\server\\share\\a.exe"), L"\\\\?\\UNC\\server\\share\\a.exe");
    EXPECT_THAT(calls, ElementsAre("open \\\\server\\share\\a.exe", "open \\\\server\\share\\"));
}

TEST_F(CanonicalPathTest, of_a_relative_path_is_looked_for_from_the_current_folder)
{
    const Fake<&GetFullPathNameW> full = [](LPCWSTR path, DWORD, LPWSTR name, LPWSTR*) {
        return static_cast<DWORD>(swprintf(name, MAX_PATH, L"C:\\Windows\\System32\\%ls", path));
    };
    files[L"C:\\Windows\\System32\\there"] = {.name = L"\\\\?\\C:\\Windows\\System32\\there"};

    EXPECT_EQ(GetCanonicalPath(L"there"), L"\\\\?\\C:\\Windows\\System32\\there");
    EXPECT_EQ(GetCanonicalPath(L"%ProgramFiles%\\Velmora\\"), L"%ProgramFiles%\\Velmora");
    for (const wchar_t* const path : {L"\\gone", L"C:gone", L"C:", L"C", L"..\\gone"})
    {
        EXPECT_EQ(GetCanonicalPath(path), path);
    }
}

TEST_F(CanonicalPathTest, of_nothing_is_nothing)
{
    EXPECT_EQ(GetCanonicalPath(L""), L"");
}

TEST_F(CanonicalPathTest, takes_either_separator_and_straightens_what_is_not_there)
{
    files[L"C:\\Real\\"] = {.name = L"\\\\?\\C:\\Real"};

    EXPECT_EQ(GetCanonicalPath(L"C:/Real/gone/../.\\other//a.exe"), L"\\\\?\\C:\\Real\\other\\a.exe");
}

TEST_F(CanonicalPathTest, knows_every_code_that_says_that_nothing_is_there)
{
    files[L"C:\\"] = {.name = L"\\\\?\\C:\\"};
    for (const DWORD error : std::initializer_list<DWORD>{2, 3, 53, 64, 123, 161, 267})
    {
        absence = error;
        EXPECT_EQ(GetCanonicalPath(L"C:\\gone\\a.exe"), L"\\\\?\\C:\\gone\\a.exe") << error;
    }
}

TEST_F(CanonicalPathTest, is_not_told_when_something_cannot_be_opened)
{
    files[L"C:\\"] = {.name = L"\\\\?\\C:\\"};
    for (const DWORD error : std::initializer_list<DWORD>{1, 5, 21, 32, 51, 54, 59, 67, 87, 122, 206, 1920})
    {
        files[L"C:\\a.exe"] = {.openError = error};
        EXPECT_EQ(GetCanonicalPath(L"C:\\a.exe"), std::nullopt) << error;
    }
    EXPECT_THAT(calls, Each("open C:\\a.exe"));
}

TEST_F(CanonicalPathTest, is_not_told_when_something_on_the_way_cannot_be_opened)
{
    files[L"C:\\"] = {.name = L"\\\\?\\C:\\"};
    files[L"C:\\closed\\"] = {.openError = ERROR_ACCESS_DENIED};

    EXPECT_EQ(GetCanonicalPath(L"C:\\closed\\gone\\a.exe"), std::nullopt);
}

TEST_F(CanonicalPathTest, is_not_told_when_the_name_is_not)
{
    files[L"C:\\a.exe"] = {.nameError = ERROR_ACCESS_DENIED, .objectName = L"\\Device\\Volume5\\a.exe"};
    files[L"C:\\b.exe"] = {.nameError = ERROR_PATH_NOT_FOUND, .objectNameError = ERROR_ACCESS_DENIED};
    files[L"C:\\c.exe"] = {.nameError = ERROR_INVALID_FUNCTION, .objectNameError = ERROR_INVALID_FUNCTION};

    EXPECT_EQ(GetCanonicalPath(L"C:\\a.exe"), std::nullopt);
    EXPECT_THAT(calls, ElementsAre("open C:\\a.exe", "name 0 260", "close"));
    EXPECT_EQ(GetCanonicalPath(L"C:\\b.exe"), std::nullopt);
    EXPECT_EQ(GetCanonicalPath(L"C:\\c.exe"), std::nullopt);
}

TEST_F(CanonicalPathTest, goes_back_from_something_that_is_gone_before_it_told_its_name)
{
    files[L"C:\\"] = {.name = L"\\\\?\\C:\\"};
    files[L"C:\\a.exe"] = {.nameError = ERROR_FILE_NOT_FOUND};
    files[L"C:\\b.exe"] = {.nameError = ERROR_PATH_NOT_FOUND, .objectNameError = ERROR_PATH_NOT_FOUND};

    EXPECT_EQ(GetCanonicalPath(L"C:\\a.exe"), L"\\\\?\\C:\\a.exe");
    EXPECT_EQ(GetCanonicalPath(L"C:\\b.exe"), L"\\\\?\\C:\\b.exe");
}

// Canonical paths on the file system of this machine.
class RealCanonicalPathTest : public testing::Test
{
protected:
    static std::wstring InUpperCase(std::wstring text)
    {
        CharUpperW(text.data());
        return text;
    }

    TestFolder root;
};

TEST_F(RealCanonicalPathTest, has_the_letter_case_of_the_file_system)
{
    const std::wstring file = root.AddFile(L"Folder\\File.exe");
    const auto canonical = GetCanonicalPath(file);

    ASSERT_TRUE(canonical);
    EXPECT_TRUE(canonical->ends_with(L"\\Folder\\File.exe"));
    EXPECT_EQ(GetCanonicalPath(InUpperCase(file)), canonical);
    const std::wstring folder = canonical->substr(0, canonical->rfind(L'\\'));
    EXPECT_EQ(GetCanonicalPath(InUpperCase(root / L"Folder\\")), folder);
    EXPECT_EQ(GetCanonicalPath(InUpperCase(root / L"Folder\\") + L"Gone.exe"), folder + L"\\Gone.exe");
}

TEST_F(RealCanonicalPathTest, has_the_long_names)
{
    const std::wstring file = root.AddFile(L"A folder with a long name\\A file with a long name.exe");
    std::wstring shortName(MAX_PATH, L'\0');
    shortName.resize(GetShortPathNameW(file.c_str(), shortName.data(), MAX_PATH));
    // A volume without short names gives the long one.

    EXPECT_EQ(GetCanonicalPath(shortName), GetCanonicalPath(file));
}

TEST_F(RealCanonicalPathTest, has_the_target_of_a_link)
{
    const std::wstring file = root.AddFile(L"target\\a.exe");
    ASSERT_TRUE(CreateDirectoryLink(root / L"link", root / L"target"));

    EXPECT_EQ(GetCanonicalPath(root / L"link\\a.exe"), GetCanonicalPath(file));
    EXPECT_EQ(GetCanonicalPath(root / L"link"), GetCanonicalPath(root / L"target"));
    EXPECT_EQ(GetCanonicalPath(root / L"link\\gone.exe"), *GetCanonicalPath(root / L"target") + L"\\gone.exe");
}

} // namespace
