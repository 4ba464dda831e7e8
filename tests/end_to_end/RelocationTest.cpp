// The program in the installation folder, which it is to remove: it goes on as a copy in the temporary folder.
#include "EndToEndTest.h"
#include "support/Names.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cwctype>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace Testing
{
namespace
{
// How often the copy is tried, and the seconds in between.
constexpr std::chrono::seconds c_copyPauses{9};

class RelocationTest : public EndToEndTest
{
protected:
    // The copy removed everything; there is nothing left but its own file, which goes with the next start of Windows,
    // and the log of the first process.
    void ExpectRelocated(std::string_view runType, std::string_view argument) const
    {
        ExpectRelocatedEnd(c_fullSuccess, RelocationLog(runType, RelocatedCopy(), argument),
                           ExpectedLog().Runs(runType).Lines(), RelocatedState());
    }

    // The same for a run with its temporary folder at another place.
    void RunWithTemporaryFolder(const std::wstring& folder)
    {
        RunInstalled(L"-s",
                     {.environment = {{L"TMP", folder}, {L"TEMP", folder}}, .logFolder = LogFolderIn(folder + L"\\")});
    }
};

// A switch, and the run type that it is logged as.
struct RelocatedRun
{
    const wchar_t* argument;
    const char* type;
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
    const bool isSilent = GetParam().type == std::string_view("Silent");
    RunOptions options{.hasConsole = GetParam().type == std::string_view("Verbose")};
    if (!isSilent)
    {
        options.answers = {AnswerConfirmation(IDYES)};
    }
    if (GetParam().type == std::string_view("Gui"))
    {
        options.answers.push_back(FullSuccessMessage());
    }
    LayDownSample();
    RunInstalled(GetParam().argument, options);
    ExpectRelocated(GetParam().type, ToUtf8(GetParam().argument));
}

INSTANTIATE_TEST_SUITE_P(Switch, RelocatedRunTest,
                         ::testing::Values(RelocatedRun{L"", "Gui"}, RelocatedRun{L"-s", "Silent"},
                                           RelocatedRun{L"--silent", "Silent"}, RelocatedRun{L"-g", "Gui"},
                                           RelocatedRun{L"--gui", "Gui"}, RelocatedRun{L"-v", "Verbose"},
                                           RelocatedRun{L"--verbose", "Verbose"}));

TEST_F(RelocationTest, A_program_that_is_started_in_other_letter_case_goes_on_as_its_copy)
{
    LayDownSample();
    ASSERT_TRUE(CopyFileW(ProgramPath().c_str(), InstalledProgram().c_str(), FALSE));
    std::wstring program = InstalledProgram();
    std::ranges::transform(program, program.begin(), [](wchar_t character) { return std::towlower(character); });
    RunAt(program, L"-s", {});
    ExpectRelocated("Silent", "-s");
}

class RelocatedSpellingTest : public RelocationTest, public ::testing::WithParamInterface<const wchar_t*>
{
};

TEST_P(RelocatedSpellingTest, Of_the_location_makes_no_difference)
{
    LayDownSample();
    const std::wstring location = Expand(GetParam());
    WriteValue(LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)", L"InstallLocation", REG_SZ,
               TextValue(REG_SZ, location).data);
    RunInstalled();
    const std::wstring folder = location + L"\\";
    ExpectRelocatedEnd(c_fullSuccess, RelocationLog("Silent", RelocatedCopy(), "-s", folder),
                       ExpectedLog().FindsRecord(folder).Lines(), RelocatedState());
}

INSTANTIATE_TEST_SUITE_P(Location, RelocatedSpellingTest,
                         ::testing::Values(LR"(<ProgramFiles>\VELMORA)", LR"(<ProgramFiles>\X\..\Velmora)",
                                           LR"(\\?\<ProgramFiles>\Velmora)"));

TEST_F(RelocationTest, The_help_needs_no_copy)
{
    LayDownSample();
    RunInstalled(L"-h", {.hasShortLog = true, .hasConsole = true});
    ExpectEnd(c_fullSuccess, HelpLog(), UntouchedState(), false);
}

TEST_F(RelocationTest, The_copy_of_an_earlier_run_is_overwritten)
{
    LayDownSample();
    WriteTestFile(RelocatedCopy(), 100);
    RunInstalled();
    ExpectRelocated("Silent", "-s");
}

TEST_F(RelocationTest, A_copy_that_is_held_open_for_a_while_is_waited_for)
{
    LayDownSample();
    WriteTestFile(RelocatedCopy(), 100);
    UniqueHandle holder = OwnFile(
        CreateFileW(RelocatedCopy().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(holder);
    // For longer than one pause of the program's, counted from its first line.
    std::optional<std::chrono::steady_clock::time_point> begin;
    RunInstalled(L"-s", {.whileRunning = [&](const std::string& log) {
                     const auto now = std::chrono::steady_clock::now();
                     if (!begin && !log.empty())
                     {
                         begin = now;
                     }
                     if (begin && now - *begin > std::chrono::milliseconds(1500))
                     {
                         holder.reset();
                     }
                 }});
    ExpectRelocated("Silent", "-s");
}

TEST_F(RelocationTest, A_copy_that_stays_held_open_ends_the_run)
{
    LayDownSample();
    WriteTestFile(RelocatedCopy(), 100);
    const UniqueHandle holder = OwnFile(
        CreateFileW(RelocatedCopy().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(holder);
    RunInstalled();
    // A sharing violation.
    ExpectEnd(c_copyFailed, CopyFailedLog("Silent", "-2147024864"), UntouchedState(), true);
    EXPECT_GE(Result().duration, c_copyPauses);
}

TEST_F(RelocationTest, A_folder_in_place_of_the_copy_ends_the_run)
{
    LayDownSample();
    WriteTestFile(RelocatedCopy() + L"\\somebody's", 100);
    RunInstalled();
    // Access is denied.
    ExpectEnd(c_copyFailed, CopyFailedLog("Silent", "-2147024891"), UntouchedState(), true);
    EXPECT_GE(Result().duration, c_copyPauses);
}

TEST_F(RelocationTest, A_missing_temporary_folder_is_made)
{
    LayDownSample();
    const std::wstring folder = Expand(L"<Downloads>") + LR"(\not there\yet)";
    RunWithTemporaryFolder(folder);
    ExpectRelocatedEnd(c_fullSuccess, RelocationLog("Silent", RelocatedCopy(folder + L"\\"), "-s"),
                       ExpectedLog().Lines(), RelocatedState(folder + L"\\"));
    RemoveTree(Expand(L"<Downloads>") + L"\\not there");
}

TEST_F(RelocationTest, A_copy_whose_path_is_too_long_for_Windows_to_start_ends_the_run)
{
    LayDownSample();
    std::wstring folder = Expand(L"<Downloads>");
    folder += L"\\" + std::wstring(100, L'a') + L"\\" + std::wstring(230 - folder.size() - 102, L'b');
    RunWithTemporaryFolder(folder);
    const std::wstring copy = RelocatedCopy(folder + L"\\");
    ASSERT_GT(copy.size(), static_cast<std::size_t>(MAX_PATH));
    MachineState state = Before();
    state.AddWithParents(LogFolderIn(folder + L"\\").substr(0, copy.rfind(L'\\')), StateEntry::Kind::Folder);
    state.Set(copy, *Before().Find(InstalledProgram()));
    AddPendingDeletion(state, InstalledProgram());
    // Which reason it is depends on the Windows.
    const std::string_view reason = "! Reason: ";
    const std::size_t begin = Result().log.find(reason) + reason.size();
    ExpectEnd(c_startFailed,
              StartFailedLog("Silent", copy, "-s", Result().log.substr(begin, Result().log.find('\r', begin) - begin)),
              state, true);
    RemoveTree(Expand(L"<Downloads>") + L"\\" + std::wstring(100, L'a'));
}

TEST_F(RelocationTest, A_temporary_folder_that_cannot_be_made_ends_the_run)
{
    LayDownSample();
    const std::wstring file = Expand(L"<Downloads>") + L"\\not a folder";
    WriteTestFile(file, 10);
    RunWithTemporaryFolder(file);
    EXPECT_EQ(Result().exitCode, c_copyFailed);
    EXPECT_EQ(Result().log, "");
    ExpectState(Before());
    RemoveTree(file);
}

TEST_F(RelocationTest, A_copy_that_cannot_be_started_ends_the_run_and_schedules_the_program)
{
    LayDownSample();
    WriteTestFile(RelocatedCopy(), 100);
    // Windows starts no program that somebody may be writing to.
    const UniqueHandle writer = OwnFile(CreateFileW(RelocatedCopy().c_str(), GENERIC_WRITE,
                                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                    OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(writer);
    RunInstalled();
    MachineState state = UntouchedState();
    state.Set(RelocatedCopy(), *Before().Find(InstalledProgram()));
    AddPendingDeletion(state, InstalledProgram());
    // A sharing violation.
    ExpectEnd(c_startFailed, StartFailedLog("Silent", RelocatedCopy(), "-s", "-2147024864"), state, true);
}

TEST_F(RelocationTest, A_temporary_folder_with_other_letters_is_used)
{
    LayDownSample();
    const std::wstring folder = Expand(L"<Downloads>") + LR"(\Émile 序曲\Temp)";
    RunWithTemporaryFolder(folder);
    ExpectRelocatedEnd(c_fullSuccess, RelocationLog("Silent", RelocatedCopy(folder + L"\\"), "-s"),
                       ExpectedLog().Lines(), RelocatedState(folder + L"\\"));
    RemoveTree(Expand(L"<Downloads>") + LR"(\Émile 序曲)");
}
} // namespace
} // namespace Testing
