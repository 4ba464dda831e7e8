// The program in the installation folder, which it is to remove: it goes on as a copy in the temporary folder. Nothing
// is left but the copy, which goes with the next start of Windows, and the log of the first process.
#include "EndToEndTest.h"

#include <windows.h>

#include <string>

namespace Testing
{
namespace
{
class RelocationTest : public EndToEndTest
{
protected:
    RelocationTest() { LayDownSample(); }
};

TEST_F(RelocationTest, The_copy_overwrites_an_earlier_one_and_shows_the_window)
{
    WriteTestFile(RelocatedCopy(), 100);
    RunInstalled(L"", {.answers = {AnswerConfirmation(IDYES), FullSuccessMessage()}});
    ExpectRelocatedEnd(c_fullSuccess, RelocationLog("Gui", RelocatedCopy(), ""), ExpectedLog().Runs("Gui").Lines(),
                       RelocatedState());
}

TEST_F(RelocationTest, The_copy_has_the_console)
{
    RunInstalled(L"--verbose", {.answers = {AnswerConfirmation(IDYES)}, .hasConsole = true});
    ExpectRelocatedEnd(c_fullSuccess, RelocationLog("Verbose", RelocatedCopy(), "--verbose"),
                       ExpectedLog().Runs("Verbose").Lines(), RelocatedState());
}

TEST_F(RelocationTest, A_missing_temporary_folder_with_other_letters_is_made)
{
    const std::wstring folder = Expand(LR"(<Downloads>\Émile 序曲\Temp\)");
    RunInstalled(L"-s", {.environment = {{L"TMP", folder}, {L"TEMP", folder}}, .logFolder = LogFolderIn(folder)});
    ExpectRelocatedEnd(c_fullSuccess, RelocationLog("Silent", RelocatedCopy(folder), "-s"), ExpectedLog().Lines(),
                       RelocatedState(folder));
    RemoveTree(Expand(LR"(<Downloads>\Émile 序曲)"));
}
} // namespace
} // namespace Testing
