// Runs whose log cannot be written, and what stands in the way of it.
#include "EndToEndTest.h"

#include <windows.h>

namespace Testing
{
namespace
{
class LogTest : public EndToEndTest
{
protected:
    // Runs with the temporary folder at another place.
    void RunWithTemporaryFolder(const std::wstring& folder)
    {
        LayDownSample();
        Run(L"-s", {.environment = {{L"TMP", folder}, {L"TEMP", folder}}, .logFolder = LogFolderIn(folder + L"\\")});
    }
};

TEST_F(LogTest, A_file_in_place_of_the_temporary_folder_costs_only_the_log)
{
    const std::wstring file = Expand(L"<Downloads>") + L"\\not a folder";
    WriteTestFile(file, 10);
    RunWithTemporaryFolder(file);
    EXPECT_EQ(Result().exitCode, c_fullSuccess);
    EXPECT_EQ(Result().log, "");
    ExpectState(DeclaredStateWithoutLogFolder());
    RemoveTree(file);
}

TEST_F(LogTest, A_missing_temporary_folder_is_made)
{
    const std::wstring folder = Expand(L"<Downloads>") + LR"(\Émile 序曲\temporary)";
    RunWithTemporaryFolder(folder);
    MachineState state = DeclaredStateWithoutLogFolder();
    state.AddWithParents(folder + LR"(\Velmora\Uninstaller)", StateEntry::Kind::Folder);
    ExpectFullSuccess({}, state);
    RemoveTree(Expand(L"<Downloads>") + LR"(\Émile 序曲)");
}

TEST_F(LogTest, Logs_of_earlier_runs_stay_and_a_location_with_other_scripts_is_written_in_UTF_8)
{
    LayDownSample();
    WriteTestFile(LogFolderIn(TemporaryFolder()) + L"Uninstaller_2024_2_29_23_59_59.log", 400);
    const std::wstring folder = Expand(L"<ProgramFiles>") + L"\\Émile 序曲";
    WriteTestFile(folder + L"\\Velmora.exe", 10, FILE_ATTRIBUTE_READONLY);
    WriteValue(LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)", L"InstallLocation", REG_SZ,
               TextValue(REG_SZ, folder).data);
    Run();
    ExpectPartialUninstall(ExpectedLog().FindsRecord(folder + L"\\").Fails(Step::InstallFolder, ERROR_ACCESS_DENIED),
                           DeclaredStateWith({InstallFolder()}));
    RemoveTree(folder);
}
} // namespace
} // namespace Testing
