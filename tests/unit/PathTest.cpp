#include "Installer/Path.h"

#include "support/common/ImportTableFake.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;

std::wstring CurrentFolder()
{
    std::wstring folder(MAX_PATH, L'\0');
    folder.resize(GetCurrentDirectoryW(MAX_PATH, folder.data()));
    return folder;
}

TEST(ToExtendedPathTest, Takes_a_path_as_Windows_does_and_puts_the_prefix_in_front)
{
    for (const auto& [path, extended] : std::vector<std::pair<std::wstring, std::wstring>>{
             {L"C:\\Program Files\\Velmora", L"\\\\?\\C:\\Program Files\\Velmora"},
             {L"C:\\Program Files\\Velmora\\", L"\\\\?\\C:\\Program Files\\Velmora\\"},
             {L"c:/Program Files//X\\..\\.\\Velmora/", L"\\\\?\\c:\\Program Files\\Velmora\\"},
             {L"C:\\Velmora. ", L"\\\\?\\C:\\Velmora"},
             {L"C:\\", L"\\\\?\\C:\\"},
             {L"\\\\server\\share\\Velmora", L"\\\\?\\UNC\\server\\share\\Velmora"},
             {L"//server/share/X/../Velmora", L"\\\\?\\UNC\\server\\share\\Velmora"},
             {L"\\\\.\\C:\\Velmora", L"\\\\?\\C:\\Velmora"},
             {L"//?/C:/Velmora", L"\\\\?\\C:\\Velmora"},
             // One that is extended stays as it is.
             {L"\\\\?\\C:\\Velmora", L"\\\\?\\C:\\Velmora"},
             {L"\\\\?\\UNC\\server\\share", L"\\\\?\\UNC\\server\\share"},
             {L"\\\\?\\Volume{12}\\a", L"\\\\?\\Volume{12}\\a"},
             {L"\\\\?\\C:/X\\..\\Velmora. ", L"\\\\?\\C:/X\\..\\Velmora. "},
         })
    {
        EXPECT_EQ(ToExtendedPath(path), extended) << path;
    }
}

TEST(ToExtendedPathTest, Makes_a_relative_path_a_full_one)
{
    EXPECT_EQ(ToExtendedPath(L"..\\x").substr(0, 4), L"\\\\?\\");
    EXPECT_EQ(ToExtendedPath(L"a.exe"), L"\\\\?\\" + CurrentFolder() + L"\\a.exe");
}

TEST(ToExtendedPathTest, Takes_a_path_of_any_length)
{
    for (const std::size_t length : {255U, 256U, 257U, 258U, 30'000U})
    {
        const std::wstring path = L"C:\\" + std::wstring(length, L'x');
        EXPECT_EQ(ToExtendedPath(path), L"\\\\?\\" + path) << length;
    }
}

TEST(ToExtendedPathTest, Leaves_a_path_that_Windows_does_not_make_full)
{
    EXPECT_EQ(ToExtendedPath(L""), L"");
    Fake<&GetFullPathNameW> failing = Fails(ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(ToExtendedPath(L"C:\\Velmora"), L"C:\\Velmora");
}

TEST(GetParentFolderTest, Goes_up_to_the_root)
{
    for (const auto& [path, parent] : std::vector<std::pair<std::wstring, std::wstring>>{
             {L"\\\\?\\C:\\a\\b", L"\\\\?\\C:\\a\\"},
             {L"\\\\?\\C:\\a\\b\\", L"\\\\?\\C:\\a\\"},
             {L"\\\\?\\C:\\a", L"\\\\?\\C:\\"},
             {L"\\\\?\\C:\\a\\", L"\\\\?\\C:\\"},
             {L"\\\\?\\C:\\", L""},
             {L"\\\\?\\C:", L""},
             {L"\\\\?\\Volume{12}\\a", L"\\\\?\\Volume{12}\\"},
             {L"\\\\?\\Volume{12}\\", L""},
             {L"\\\\?\\UNC\\server\\share\\a", L"\\\\?\\UNC\\server\\share\\"},
             {L"\\\\?\\unc\\server\\share\\a", L"\\\\?\\unc\\server\\share\\"},
             {L"\\\\?\\UNC\\server\\share\\", L""},
             {L"\\\\?\\unc\\server\\share\\", L""},
             {L"\\\\?\\UNC\\server\\share", L""},
             {L"\\\\?\\UNC\\server\\", L""},
             {L"\\\\?\\UNC\\server", L""},
             {L"\\\\?\\UNC\\", L""},
             {L"\\\\?\\", L""},
             {L"C:\\a\\b", L""},
             {L"", L""},
         })
    {
        EXPECT_EQ(GetParentFolder(path), parent) << path;
    }
}

TEST(IsInsideTest, Goes_by_the_texts_alone)
{
    EXPECT_TRUE(IsInside(L"C:\\folder\\deep\\.hidden\\a", L"C:\\folder"));
    EXPECT_TRUE(IsInside(L"C:\\a.exe", L"C:\\"));
    EXPECT_TRUE(IsInside(L"\\\\server\\share\\folder\\a.exe", L"\\\\server\\share\\folder"));
    EXPECT_TRUE(IsInside(L"\\\\?\\Volume{12}\\folder\\a.exe", L"\\\\?\\Volume{12}\\folder"));

    EXPECT_FALSE(IsInside(L"C:\\folder\\", L"C:\\folder"));
    EXPECT_FALSE(IsInside(L"C:\\a.exe", L"C:\\folder"));
    EXPECT_FALSE(IsInside(L"C:\\folder\\..hidden\\a.exe", L"C:\\folder"));
    EXPECT_FALSE(IsInside(L"\\\\server\\share\\folder\\a.exe", L"\\\\other\\share\\folder"));
    EXPECT_FALSE(IsInside(L"\\\\server\\share\\folder\\a.exe", L"C:\\folder"));
    EXPECT_FALSE(IsInside(L"\\\\?\\Volume{12}\\folder\\a.exe", L"C:\\folder"));
    EXPECT_FALSE(IsInside(L"\\\\?\\Volume{12}\\folder\\a.exe", L"\\\\?\\Volume{13}\\folder"));
    EXPECT_FALSE(IsInside(L"a.exe", L""));
    EXPECT_FALSE(IsInside(L"\\\\server\\share\\a.exe", L"\\"));
}

TEST(IsInsideTest, Knows_both_paths_in_every_spelling)
{
    for (const wchar_t* const folder :
         {L"C:\\Program Files\\Velmora\\", L"c:\\PROGRAM FILES\\velmora", L"C:/Program Files/Velmora/",
          L"C:\\\\Program Files\\\\Velmora\\\\", L"C:\\Program Files\\X\\..\\Velmora\\",
          L"C:\\Program Files\\.\\Velmora\\.\\", L"C:\\..\\Program Files\\Velmora\\",
          L"\\\\?\\C:\\Program Files\\Velmora\\", L"\\\\?\\C:\\Program Files\\X\\..\\Velmora\\",
          L"\\\\?\\c:\\program files\\velmora", L"//?/C:/Program Files/Velmora/", L"\\\\.\\C:\\Program Files\\Velmora"})
    {
        for (const std::wstring path :
             {L"C:\\Program Files\\Velmora\\u.exe", L"c:\\program files\\velmora\\U.EXE",
              L"C:/Program Files/Velmora/bin//u.exe", L"\\\\?\\C:\\Program Files\\Velmora\\u.exe",
              L"C:\\Program Files\\Velmora\\X\\..\\u.exe"})
        {
            EXPECT_TRUE(IsInside(path, folder)) << path << " in " << folder;
            EXPECT_TRUE(IsBelow(path, folder)) << path << " in " << folder;
        }
        for (const std::wstring path :
             {L"C:\\Program Files\\Velmora\\.x\\a.exe", L"C:\\Program Files\\Velmora\\..\\u.exe",
              L"C:\\Program Files\\Velmora", L"C:\\Program Files\\Velmora2\\u.exe",
              L"D:\\Program Files\\Velmora\\u.exe", L"\\\\?\\D:\\Program Files\\Velmora\\u.exe",
              L"\\\\C\\Program Files\\Velmora\\u.exe"})
        {
            EXPECT_FALSE(IsInside(path, folder)) << path << " in " << folder;
        }
    }
    for (const wchar_t* const folder :
         {L"\\\\server\\share\\Velmora\\", L"//SERVER/Share/velmora", L"\\\\?\\UNC\\server\\share\\Velmora\\",
          L"\\\\?\\unc\\server\\share\\X\\..\\Velmora", L"//?/UNC/server/share/Velmora"})
    {
        EXPECT_TRUE(IsInside(L"\\\\server\\share\\Velmora\\u.exe", folder)) << folder;
        EXPECT_TRUE(IsInside(L"\\\\?\\UNC\\SERVER\\share\\Velmora\\u.exe", folder)) << folder;
        EXPECT_FALSE(IsInside(L"C:\\share\\Velmora\\u.exe", folder)) << folder;
    }
    EXPECT_TRUE(IsInside(L"\\\\?\\VOLUME{12}\\X\\..\\folder\\a.exe", L"//?/Volume{12}/folder/"));
}

TEST(IsInsideTest, Does_not_ask_the_file_system)
{
    const Fake<&CreateFileW> create = [](auto...) -> HANDLE { throw std::logic_error("a file is opened"); };
    const Fake<&GetFileAttributesW> attributes = [](auto...) -> DWORD { throw std::logic_error("a file is examined"); };
    const Fake<&GetFullPathNameW> full = [](auto...) -> DWORD { throw std::logic_error("a current folder is used"); };

    EXPECT_TRUE(IsInside(L"C:\\Windows\\..\\Velmora\\a.exe", L"c:/VELMORA"));
}

TEST(IsBelowTest, Counts_what_begins_with_a_full_stop)
{
    EXPECT_TRUE(IsBelow(L"C:\\folder\\.hidden\\a.exe", L"C:\\Folder\\"));
    EXPECT_TRUE(IsBelow(L"C:\\folder\\.a", L"C:\\folder"));
    EXPECT_TRUE(IsBelow(L"C:\\folder", L"C:\\"));

    EXPECT_FALSE(IsBelow(L"C:\\folder", L"C:\\folder\\"));
    EXPECT_FALSE(IsBelow(L"C:\\folder2", L"C:\\folder"));
    EXPECT_FALSE(IsBelow(L"C:\\folder.x", L"C:\\folder"));
    EXPECT_FALSE(IsBelow(L"C:\\", L"C:\\folder"));
}

TEST(IsSamePathTest, Is_the_same_in_every_spelling)
{
    EXPECT_TRUE(IsSamePath(L"C:\\Folder", L"c:/folder//"));
    EXPECT_TRUE(IsSamePath(L"\\\\?\\C:\\", L"C:\\"));
    EXPECT_TRUE(IsSamePath(L"C:\\\u00c4", L"C:\\\u00e4"));

    EXPECT_FALSE(IsSamePath(L"C:\\folder", L"C:\\folder2"));
    EXPECT_FALSE(IsSamePath(L"C:\\folder\\a", L"C:\\folder"));
    EXPECT_FALSE(IsSamePath(L"C:\\folder", L"C:\\folder\\a"));
    EXPECT_FALSE(IsSamePath(L"", L""));
    EXPECT_FALSE(IsSamePath(L"\\\\server\\share", L"\\server\\share"));
}

TEST(IsSamePathTest, Resolves_dots_as_far_as_there_is_a_parent)
{
    EXPECT_TRUE(IsSamePath(L"\\..\\a", L"\\a"));
    EXPECT_TRUE(IsSamePath(L"\\\\..\\server\\share", L"\\\\server\\share"));
    EXPECT_TRUE(IsSamePath(L"..\\..\\a", L".\\..\\b\\..\\..\\a"));

    EXPECT_FALSE(IsSamePath(L"..\\a", L"a"));
    EXPECT_FALSE(IsSamePath(L"..\\..\\a", L"a"));
    EXPECT_FALSE(IsSamePath(L"C:..\\a", L"C:a"));
    EXPECT_FALSE(IsSamePath(L"C:a", L"C:\\a"));
}

} // namespace
