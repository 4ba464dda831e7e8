#include "Uninstaller/Preconditions.h"

#include "support/FakeFolders.h"
#include "support/FakeRegistry.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

using namespace Uninstaller;
using namespace Testing;

class FindInstallFolderTest : public testing::Test
{
protected:
    void AddEntry(const std::wstring& location, const std::wstring& version)
    {
        const std::wstring key = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Velmora";
        registry.SetString(key, L"InstallLocation", location);
        registry.SetString(key, L"DisplayVersion", version);
    }

    VirtualClock clock;
    TestFolder root;
    FakeFolders folders{root};
    FakeRegistry registry;
    Installer::Logger logger;
};

TEST_F(FindInstallFolderTest, takes_the_folder_of_the_entry_and_logs_it_with_the_version)
{
    AddEntry(L"D:\\Apps\\Velmora\\current", L"2.8.1.70000");

    EXPECT_EQ(FindInstallFolder(logger), L"D:\\Apps\\Velmora\\");

    EXPECT_EQ(ReadFileText(logger.LogPath()),
              "|INFO|:    Found Velmora install entry at 'D:\\Apps\\Velmora\\', version 2.8.1.4464.\n");
}

TEST_F(FindInstallFolderTest, takes_the_default_folder_without_an_entry)
{
    EXPECT_EQ(FindInstallFolder(logger), folders.ProgramFiles() + L"\\Velmora\\");

    EXPECT_EQ(ReadFileText(logger.LogPath()),
              "|INFO|:    Did not find previous Velmora install entry. Will continue with assuming default install "
              "location.\n"
              "|INFO|:    No previous Velmora install directory found, using default.\n");
}

TEST_F(FindInstallFolderTest, takes_the_default_folder_for_an_entry_that_makes_no_sense)
{
    AddEntry(L"D:\\Apps\\Velmora", L"x");

    EXPECT_EQ(FindInstallFolder(logger), folders.ProgramFiles() + L"\\Velmora\\");
}

} // namespace
