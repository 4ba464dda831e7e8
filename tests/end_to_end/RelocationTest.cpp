// The program in the installation folder, which it is to remove: it goes on as a copy in the temporary folder.
#include "EndToEndTest.h"
#include "support/end_to_end/Names.h"

#include <windows.h>

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{
namespace
{
class RelocationTest : public EndToEndTest
{
protected:
    RelocationTest() { LayDownSample(); }

    // The copy removed everything; there is nothing left but its own file, which goes with the next start of Windows,
    // and the log of the first process.
    void ExpectRelocated(std::string_view runType, std::string_view argument) const
    {
        ExpectRelocatedEnd(c_fullSuccess, RelocationLog(runType, RelocatedCopy(), argument),
                           ExpectedLog().Runs(runType).Lines(), RelocatedState());
    }

    // A run with its temporary folder at another place, which ends in no backslash.
    void RunWithTemporaryFolder(const std::wstring& folder)
    {
        RunInstalled(L"-s",
                     {.environment = {{L"TMP", folder}, {L"TEMP", folder}}, .logFolder = LogFolderIn(folder + L"\\")});
    }

    // The file of an earlier copy, held open with the rights of somebody who shares only these.
    static UniqueHandle HoldEarlierCopy(DWORD access, DWORD share)
    {
        WriteTestFile(RelocatedCopy(), 100);
        return OwnFile(CreateFileW(RelocatedCopy().c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr));
    }
};

// A switch, the run type that it is logged as, and the dialogs that come.
struct RelocatedRun
{
    const wchar_t* argument;
    const char* type;
    std::vector<DialogAnswer> answers;
};

void PrintTo(const RelocatedRun& run, std::ostream* stream)
{
    *stream << '"' << ToUtf8(run.argument) << '"';
}

class RelocatedRunTest : public RelocationTest, public ::testing::WithParamInterface<RelocatedRun>
{
};

TEST_P(RelocatedRunTest, Nothing_is_left_but_the_copy_that_goes_with_the_next_start)
{
    const auto& [argument, type, answers] = GetParam();
    WriteTestFile(RelocatedCopy(), 100); // the copy of an earlier run, which is overwritten
    RunInstalled(argument, {.answers = answers, .hasConsole = type == std::string_view("Verbose")});
    ExpectRelocated(type, ToUtf8(argument));
}

INSTANTIATE_TEST_SUITE_P(Switch, RelocatedRunTest,
                         ::testing::Values(RelocatedRun{L"", "Gui", {AnswerConfirmation(IDYES), FullSuccessMessage()}},
                                           RelocatedRun{
                                               L"--gui", "Gui", {AnswerConfirmation(IDYES), FullSuccessMessage()}},
                                           RelocatedRun{L"-s", "Silent", {}},
                                           RelocatedRun{L"--verbose", "Verbose", {AnswerConfirmation(IDYES)}}));

class RelocatedSpellingTest : public RelocationTest, public ::testing::WithParamInterface<const wchar_t*>
{
};

TEST_P(RelocatedSpellingTest, Of_the_location_makes_no_difference)
{
    const std::wstring location = Expand(GetParam());
    WriteValue(LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)", L"InstallLocation", REG_SZ,
               TextValue(REG_SZ, location).data);
    RunInstalled();
    const std::wstring folder = location + L"\\";
    ExpectRelocatedEnd(c_fullSuccess, RelocationLog("Silent", RelocatedCopy(), "-s", folder),
                       ExpectedLog().FindsRecord(folder).Lines(), RelocatedState());
}

INSTANTIATE_TEST_SUITE_P(Location, RelocatedSpellingTest,
                         ::testing::Values(LR"(<ProgramFiles>\X\..\VELMORA)", LR"(\\?\<ProgramFiles>\Velmora)"));

TEST_F(RelocationTest, A_copy_that_stays_held_open_ends_the_run)
{
    const UniqueHandle holder = HoldEarlierCopy(GENERIC_READ, FILE_SHARE_READ);
    ASSERT_TRUE(holder);
    RunInstalled();
    // A sharing violation.
    ExpectEnd(c_copyFailed, CopyFailedLog("Silent", "-2147024864"), UntouchedState(), true);
}

TEST_F(RelocationTest, A_missing_temporary_folder_with_other_letters_is_made)
{
    const std::wstring folder = Expand(L"<Downloads>") + LR"(\Émile 序曲\Temp)";
    RunWithTemporaryFolder(folder);
    ExpectRelocatedEnd(c_fullSuccess, RelocationLog("Silent", RelocatedCopy(folder + L"\\"), "-s"),
                       ExpectedLog().Lines(), RelocatedState(folder + L"\\"));
    RemoveTree(Expand(L"<Downloads>") + LR"(\Émile 序曲)");
}

TEST_F(RelocationTest, A_temporary_folder_that_cannot_be_made_ends_the_run)
{
    const std::wstring file = Expand(L"<Downloads>") + L"\\not a folder";
    WriteTestFile(file, 10);
    RunWithTemporaryFolder(file);
    EXPECT_EQ(Result().exitCode, c_copyFailed);
    EXPECT_EQ(Result().log, "");
    ExpectState(Before());
    RemoveTree(file);
}
} // namespace
} // namespace Testing
