// Runs whose log cannot be written, and what stands in the way of it.
#include "EndToEndTest.h"
#include "support/Names.h"

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
        RunOptions options;
        options.environment = {{L"TMP", folder}, {L"TEMP", folder}};
        options.logFolder = LogFolderIn(folder + L"\\");
        Run(L"-s", options);
    }

    // Everything declared went, without a log.
    void ExpectSuccessWithoutLog() const
    {
        EXPECT_EQ(Result().exitCode, c_fullSuccess);
        EXPECT_EQ(Result().log, "");
        ExpectState(DeclaredStateWithoutLogFolder());
    }
};

TEST_F(LogTest, A_file_in_place_of_the_temporary_folder_costs_only_the_log)
{
    LayDownSample();
    const std::wstring file = Expand(L"<Downloads>") + L"\\not a folder";
    WriteTestFile(file, 10);
    RunWithTemporaryFolder(file);
    ExpectSuccessWithoutLog();
    RemoveTree(file);
}

TEST_F(LogTest, A_temporary_folder_on_a_missing_drive_costs_only_the_log)
{
    LayDownSample();
    RunWithTemporaryFolder(L"Q:\\Temp");
    ExpectSuccessWithoutLog();
}

TEST_F(LogTest, A_file_in_place_of_the_logs_folder_costs_only_the_log)
{
    LayDownSample();
    WriteTestFile(TemporaryFolder() + L"Velmora", 10);
    Run();
    ExpectSuccessWithoutLog();
}

TEST_F(LogTest, A_missing_temporary_folder_is_made)
{
    LayDownSample();
    const std::wstring folder = Expand(L"<Downloads>") + LR"(\Émile 序曲\temporary)";
    RunWithTemporaryFolder(folder);
    MachineState state = DeclaredStateWithoutLogFolder();
    state.AddWithParents(folder + LR"(\Velmora\Uninstaller)", StateEntry::Kind::Folder);
    ExpectFullSuccess({}, state);
    RemoveTree(Expand(L"<Downloads>") + LR"(\Émile 序曲)");
}

TEST_F(LogTest, Logs_of_earlier_runs_stay)
{
    LayDownSample();
    WriteTestFile(LogFolderIn(TemporaryFolder()) + L"Uninstaller_2024_2_29_23_59_59.log", 400);
    Run();
    ExpectFullSuccess();
}

TEST_F(LogTest, A_location_with_other_scripts_is_written_in_utf_8)
{
    LayDownSample();
    const std::wstring folder = Expand(L"<ProgramFiles>") + L"\\Émile 序曲";
    WriteTestFile(folder + L"\\Velmora.exe", 10);
    ASSERT_TRUE(SetFileAttributesW((folder + L"\\Velmora.exe").c_str(), FILE_ATTRIBUTE_READONLY));
    WriteValue(LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)", L"InstallLocation", REG_SZ,
               TextValue(REG_SZ, folder).data);
    Run();
    MachineState state = DeclaredState();
    for (const auto& [path, entry] : Before().All())
    {
        if (IsAtOrBelow(path, InstallFolder()))
        {
            state.Set(path, entry);
        }
    }
    ExpectPartialUninstall(ExpectedLog()
                               .FindsRecord(folder + L"\\")
                               .Fails(Step::InstallFolder,
                                      static_cast<unsigned long>(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)),
                                      folder + L"\\"),
                           state);
    RemoveTree(folder);
}
} // namespace
} // namespace Testing
