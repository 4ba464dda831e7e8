#include "Installer/CanonicalPath.h"

#include "support/common/DirectoryLink.h"
#include "support/common/ImportTableFake.h"
#include "support/unit/FailureLog.h"
#include "support/unit/Handles.h"
#include "support/unit/Journal.h"
#include "support/unit/TestFolder.h"

#include <windows.h>

#include <gmock/gmock.h>

#include <map>
#include <string>
#include <utility>

namespace
{

using namespace Installer;
using namespace Testing;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

// Calls, as the journal has them.
std::string Open(const std::wstring& path)
{
    return "CreateFileW(\"" + Narrow(path) + "\")";
}

std::string Name(const std::wstring& path, DWORD kind = VOLUME_NAME_DOS, std::size_t size = MAX_PATH)
{
    return "GetFinalPathNameByHandleW(\"" + Narrow(path) + "\", " + std::to_string(size) + ", " + std::to_string(kind) +
           ")";
}

std::string Close(const std::wstring& path)
{
    return "CloseHandle(\"" + Narrow(path) + "\")";
}

// A file system with the files that a test puts into it; all else is absent.
class CanonicalPathTest : public testing::Test
{
protected:
    ~CanonicalPathTest() override { EXPECT_THAT(failures.Entries(), IsEmpty()); }

    std::map<std::wstring, std::wstring> files; // and how the file system names them
    std::map<std::wstring, std::wstring> objectNames;
    DWORD absence = ERROR_FILE_NOT_FOUND;

    Journal journal;
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

    HANDLE OpenFile(const std::wstring& path)
    {
        const DWORD error = journal.Add("CreateFileW", path.c_str());
        if (error != ERROR_SUCCESS || !files.contains(path))
        {
            SetLastError(error != ERROR_SUCCESS ? error : absence);
            return INVALID_HANDLE_VALUE;
        }
        return handles.Make('"' + Narrow(path) + '"', path);
    }

    DWORD ReadName(HANDLE handle, wchar_t* name, DWORD size, DWORD kind)
    {
        if (const DWORD error = journal.Add("GetFinalPathNameByHandleW", handles.NameOf(handle), size, kind))
        {
            SetLastError(error);
            return 0;
        }
        const std::wstring& text = (kind == VOLUME_NAME_NT ? objectNames : files)[*handles.Find<std::wstring>(handle)];
        const auto length = static_cast<DWORD>(text.size());
        if (length >= size)
        {
            return length + 1;
        }
        name[text.copy(name, length)] = L'\0';
        return length;
    }

    Handles handles{journal};
    Fake<&CreateFileW> m_create = [this](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                         DWORD disposition, DWORD flags, HANDLE pattern) {
        EXPECT_EQ(access, DWORD{FILE_READ_ATTRIBUTES});
        EXPECT_EQ(sharing, DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE});
        EXPECT_EQ(security, nullptr);
        EXPECT_EQ(disposition, DWORD{OPEN_EXISTING});
        EXPECT_EQ(flags, DWORD{FILE_FLAG_BACKUP_SEMANTICS});
        EXPECT_EQ(pattern, nullptr);
        return OpenFile(WithoutPrefix(path));
    };
    Fake<&GetFinalPathNameByHandleW> m_name = [this](HANDLE file, LPWSTR name, DWORD size, DWORD kind) {
        return ReadName(file, name, size, kind);
    };
};

using Paths = std::pair<std::wstring, std::wstring>;

TEST_F(CanonicalPathTest, Is_the_name_of_what_is_there)
{
    const Paths paths[] = {
        {L"c:\\PROGRA~1\\A.EXE", L"\\\\?\\C:\\Program Files\\a.exe"},
        {L"c:\\", L"\\\\?\\C:\\"},
        {L"X:\\a.exe", L"\\\\?\\UNC\\server\\share\\a.exe"},
        {L"C:\\mount\\a.exe", L"\\\\?\\Volume{12}\\a.exe"},
        {L"C:\\a.exe", L"\\\\?\\C"},
        {L"C:\\" + std::wstring(300, L'x'), L"\\\\?\\D:\\" + std::wstring(200, L'x')},
        {L"C:\\259", L"\\\\?\\C:\\" + std::wstring(252, L'x')}, // just fits at once
    };
    for (const auto& [path, name] : paths)
    {
        files[path] = name;

        EXPECT_EQ(GetCanonicalPath(path), name);
        EXPECT_THAT(journal.Take(), ElementsAre(Open(path), Name(path), Close(path)));
    }
}

TEST_F(CanonicalPathTest, Is_read_again_when_it_did_not_fit)
{
    for (const std::size_t length : {260U, 5000U})
    {
        files[L"C:\\long"] = L"\\\\?\\C:\\" + std::wstring(length - 7, L'x');

        EXPECT_EQ(GetCanonicalPath(L"C:\\long"), files[L"C:\\long"]);
        EXPECT_THAT(journal.Take(), ElementsAre(Open(L"C:\\long"), Name(L"C:\\long"),
                                                Name(L"C:\\long", VOLUME_NAME_DOS, length + 1), Close(L"C:\\long")));
    }
}

TEST_F(CanonicalPathTest, Of_something_that_only_has_an_object_name_is_that)
{
    files[L"R:\\"] = files[L"R:\\a.exe"] = L"";
    objectNames = {{L"R:\\", L"\\Device\\Volume5\\"}, {L"R:\\a.exe", L"\\Device\\Volume5\\a.exe"}};
    // No letter and no folder leads to the volume; or the mount manager does not know it.
    for (const DWORD error : {DWORD{ERROR_PATH_NOT_FOUND}, DWORD{ERROR_INVALID_FUNCTION}})
    {
        journal.Fail(Name(L"R:\\"), static_cast<long>(error));
        journal.Fail(Name(L"R:\\a.exe"), static_cast<long>(error));
        journal.Take();

        EXPECT_EQ(GetCanonicalPath(L"R:\\a.exe"), L"\\\\?\\GLOBALROOT\\Device\\Volume5\\a.exe") << error;
        EXPECT_THAT(journal.All(), ElementsAre(Open(L"R:\\a.exe"), Name(L"R:\\a.exe"),
                                               Name(L"R:\\a.exe", VOLUME_NAME_NT), Close(L"R:\\a.exe")));
        EXPECT_EQ(GetCanonicalPath(L"R:\\"), L"\\\\?\\GLOBALROOT\\Device\\Volume5\\") << error;
        EXPECT_EQ(GetCanonicalPath(L"R:\\gone\\b.exe"), L"\\\\?\\GLOBALROOT\\Device\\Volume5\\gone\\b.exe") << error;
    }
}

TEST_F(CanonicalPathTest, Goes_as_far_as_there_is_something)
{
    files = {{L"C:\\", L"\\\\?\\C:\\"},
             {L"c:\\", L"\\\\?\\C:\\"},
             {L"c:\\REAL\\", L"\\\\?\\D:\\Target"},
             {L"C:\\Real\\", L"\\\\?\\C:\\Real"},
             {L"\\\\SERVER\\Share\\", L"\\\\?\\UNC\\server\\share\\"},
             {L"\\\\?\\Volume{12}\\", L"\\\\?\\D:\\"}};
    const Paths paths[] = {
        {L"c:\\gone\\a.exe", L"\\\\?\\C:\\gone\\a.exe"},
        {L"c:\\a.exe", L"\\\\?\\C:\\a.exe"},
        {L"\\\\SERVER\\Share\\gone\\a.exe", L"\\\\?\\UNC\\server\\share\\gone\\a.exe"},
        {L"\\\\?\\Volume{12}\\gone\\a.exe", L"\\\\?\\D:\\gone\\a.exe"},
        {L"C:/Real/gone/../.\\other//a.exe", L"\\\\?\\C:\\Real\\other\\a.exe"},
        // A separator stays at the end of a root only.
        {L"C:\\gone\\", L"\\\\?\\C:\\gone"},
        {L"\\\\?\\C:\\gone\\\\", L"\\\\?\\C:\\gone"},
        {L"Q:\\", L"\\\\?\\Q:\\"},
        {L"Q:\\gone\\", L"\\\\?\\Q:\\gone"},
        {L"", L""},
    };
    for (const auto& [path, canonical] : paths)
    {
        EXPECT_EQ(GetCanonicalPath(path), canonical);
    }
    journal.Take();

    EXPECT_EQ(GetCanonicalPath(L"c:\\REAL\\gone\\Too\\a.exe"), L"\\\\?\\D:\\Target\\gone\\Too\\a.exe");
    EXPECT_THAT(journal.Take(),
                ElementsAre(Open(L"c:\\REAL\\gone\\Too\\a.exe"), Open(L"c:\\REAL\\gone\\Too\\"),
                            Open(L"c:\\REAL\\gone\\"), Open(L"c:\\REAL\\"), Name(L"c:\\REAL\\"), Close(L"c:\\REAL\\")));

    EXPECT_EQ(GetCanonicalPath(L"Q:\\gone\\a.exe"), L"\\\\?\\Q:\\gone\\a.exe");
    EXPECT_THAT(journal.Take(), ElementsAre(Open(L"Q:\\gone\\a.exe"), Open(L"Q:\\gone\\"), Open(L"Q:\\")));
}

TEST_F(CanonicalPathTest, On_a_server_that_is_away_is_not_looked_for_on_this_machine)
{
    files[L"\\\\server\\"] = files[L"\\\\"] = files[L"\\\\?\\"] = L"\\\\?\\C:\\";

    EXPECT_EQ(GetCanonicalPath(L"\\\\server\\share\\a.exe"), L"\\\\?\\UNC\\server\\share\\a.exe");
    EXPECT_THAT(journal.All(), ElementsAre(Open(L"\\\\server\\share\\a.exe"), Open(L"\\\\server\\share\\")));
}

TEST_F(CanonicalPathTest, Of_a_relative_path_is_looked_for_from_the_current_folder)
{
    const Fake<&GetFullPathNameW> full = [](LPCWSTR path, DWORD, LPWSTR name, LPWSTR*) {
        return static_cast<DWORD>(swprintf(name, MAX_PATH, L"C:\\Windows\\System32\\%ls", path));
    };
    files[L"C:\\Windows\\System32\\there"] = L"\\\\?\\C:\\Windows\\System32\\there";

    EXPECT_EQ(GetCanonicalPath(L"there"), L"\\\\?\\C:\\Windows\\System32\\there");
    EXPECT_EQ(GetCanonicalPath(L"%ProgramFiles%\\Velmora\\"), L"%ProgramFiles%\\Velmora");
    for (const wchar_t* const path : {L"\\gone", L"C:gone", L"C:", L"C", L"..\\gone"})
    {
        EXPECT_EQ(GetCanonicalPath(path), path);
    }
}

TEST_F(CanonicalPathTest, Knows_every_code_that_says_that_nothing_is_there)
{
    files[L"C:\\"] = L"\\\\?\\C:\\";
    for (const DWORD error : {2U, 3U, 53U, 64U, 123U, 161U, 267U})
    {
        absence = error;
        EXPECT_EQ(GetCanonicalPath(L"C:\\gone\\a.exe"), L"\\\\?\\C:\\gone\\a.exe") << error;
    }
}

TEST_F(CanonicalPathTest, Is_not_told_when_something_cannot_be_opened)
{
    files[L"C:\\"] = L"\\\\?\\C:\\";
    for (const long error : {1L, 5L, 21L, 32L, 51L, 54L, 59L, 67L, 87L, 122L, 206L, 1920L})
    {
        journal.Fail(Open(L"C:\\a.exe"), error);
        EXPECT_EQ(GetCanonicalPath(L"C:\\a.exe"), std::nullopt) << error;
    }
    EXPECT_THAT(journal.All(), Each(Open(L"C:\\a.exe")));

    journal.Fail(Open(L"C:\\closed\\"));
    EXPECT_EQ(GetCanonicalPath(L"C:\\closed\\gone\\a.exe"), std::nullopt); // on the way
}

TEST_F(CanonicalPathTest, Is_not_told_when_the_name_is_not)
{
    files[L"C:\\a.exe"] = files[L"C:\\b.exe"] = L"";
    objectNames[L"C:\\a.exe"] = L"\\Device\\Volume5\\a.exe";
    journal.Fail(Name(L"C:\\a.exe"));
    EXPECT_EQ(GetCanonicalPath(L"C:\\a.exe"), std::nullopt);
    EXPECT_THAT(journal.All(), ElementsAre(Open(L"C:\\a.exe"), Name(L"C:\\a.exe"), Close(L"C:\\a.exe")));

    journal.Fail(Name(L"C:\\b.exe"), ERROR_INVALID_FUNCTION);
    for (const long error : {ERROR_ACCESS_DENIED, ERROR_INVALID_FUNCTION})
    {
        journal.Fail(Name(L"C:\\b.exe", VOLUME_NAME_NT), error);
        EXPECT_EQ(GetCanonicalPath(L"C:\\b.exe"), std::nullopt) << error;
    }
}

TEST_F(CanonicalPathTest, Goes_back_from_something_that_is_gone_before_it_told_its_name)
{
    files[L"C:\\"] = L"\\\\?\\C:\\";
    files[L"C:\\a.exe"] = files[L"C:\\b.exe"] = L"";
    journal.Fail(Name(L"C:\\a.exe"), ERROR_FILE_NOT_FOUND);
    journal.Fail(Name(L"C:\\b.exe"), ERROR_PATH_NOT_FOUND);
    journal.Fail(Name(L"C:\\b.exe", VOLUME_NAME_NT), ERROR_PATH_NOT_FOUND);

    EXPECT_EQ(GetCanonicalPath(L"C:\\a.exe"), L"\\\\?\\C:\\a.exe");
    EXPECT_EQ(GetCanonicalPath(L"C:\\b.exe"), L"\\\\?\\C:\\b.exe");
}

// On the file system of this machine.
TEST(RealCanonicalPathTest, Has_the_letter_case_of_the_file_system_long_names_and_the_target_of_a_link)
{
    const TestFolder root;
    const std::wstring file = root.AddFile(L"A folder with a long name\\A file with a long name.exe");
    std::wstring shortName(MAX_PATH, L'\0'); // the long one on a volume without short names
    shortName.resize(GetShortPathNameW(file.c_str(), shortName.data(), MAX_PATH));
    std::wstring upper = file;
    CharUpperW(upper.data());
    ASSERT_TRUE(CreateDirectoryLink(root / L"link", root / L"A folder with a long name"));

    const auto canonical = GetCanonicalPath(file);

    ASSERT_TRUE(canonical);
    EXPECT_TRUE(canonical->ends_with(L"\\A folder with a long name\\A file with a long name.exe"));
    for (const std::wstring& path : {shortName, upper, root / L"link\\A file with a long name.exe"})
    {
        EXPECT_EQ(GetCanonicalPath(path), canonical) << path;
    }
    EXPECT_EQ(GetCanonicalPath(root / L"link\\gone.exe"),
              canonical->substr(0, canonical->rfind(L'\\')) + L"\\gone.exe");
}

} // namespace
