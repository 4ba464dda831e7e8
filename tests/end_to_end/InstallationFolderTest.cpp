// Folders of the product in states in which they cannot simply be removed.
#include "EndToEndTest.h"
#include "support/common/DirectoryLink.h"
#include "support/end_to_end/Owners.h"

#include <windows.h>

namespace Testing
{
namespace
{
class InstallationFolderTest : public EndToEndTest
{
protected:
    ~InstallationFolderTest() override
    {
        for (const std::wstring& link : m_links)
        {
            RemoveDirectoryLink(link);
        }
    }

    // Puts a link to another product's folder in the place of a folder; it goes before the sample does.
    void PutLink(const std::wstring& link)
    {
        ASSERT_TRUE(CreateDirectoryLink(link, Expand(LR"(<ProgramFiles>\Brindlewave)")));
        m_links.push_back(link);
    }

private:
    std::vector<std::wstring> m_links;
};

TEST_F(InstallationFolderTest, A_read_only_file_stays_alone_and_once_it_is_none_a_second_run_completes_the_first)
{
    LayDownSample();
    const std::wstring file = InstallFolder() + LR"(\current\locales\text-7.pak)";
    ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY));
    Run();
    ExpectPartialUninstall(ExpectedLog().Fails(Step::InstallFolder, ERROR_ACCESS_DENIED), DeclaredStateWith({file}));
    ASSERT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL));
    Run();
    ExpectFullSuccess(ExpectedLog().FindsNoRecord().FindsNoPackage());
}

TEST_F(InstallationFolderTest, A_file_that_is_released_in_time_is_no_failure)
{
    LayDownSample();
    UniqueHandle held = Hold(InstallFolder() + LR"(\current\Velmora.exe)");
    ASSERT_TRUE(held);
    // An attempt goes through the whole tree: with nothing but the held file left, the first one has failed.
    Run(L"-s", {.whileRunning = [&](const std::string&) {
            if (held && MeasureTree(InstallFolder()).files == 1)
            {
                held.reset();
            }
        }});
    EXPECT_FALSE(held) << "The file was not released while the program ran.";
    ExpectFullSuccess();
}

TEST_F(InstallationFolderTest, A_link_in_its_place_stays_with_all_that_it_leads_to)
{
    LayDownSample({Step::InstallFolder});
    PutLink(InstallFolder());
    Run();
    ExpectPartialUninstall(ExpectedLog().Fails(Step::InstallFolder, ERROR_REPARSE_POINT_ENCOUNTERED),
                           DeclaredStateWith({InstallFolder()}));
}

TEST_F(InstallationFolderTest, Links_in_place_of_the_services_folders_stay_and_only_warn)
{
    const std::set services{Step::AuthServiceProgramFolder, Step::AuthServiceDataFolder, Step::UpdaterFolder};
    LayDownSample(services);
    ExpectedLog log;
    std::vector<std::wstring> links;
    for (const Step step : services)
    {
        links.push_back(PathOf(RowOf(step).parts.front()));
        PutLink(links.back());
        log.Fails(step, ERROR_REPARSE_POINT_ENCOUNTERED);
    }
    Run();
    ExpectFullSuccess(log, DeclaredStateWith(links));
}
} // namespace
} // namespace Testing
