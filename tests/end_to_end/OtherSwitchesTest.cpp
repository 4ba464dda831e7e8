// The switches other than the silent one: consoles, the confirmation, and the help.
#include "EndToEndTest.h"
#include "LimitedDesktop.h"
#include "LimitedToken.h"
#include "LogViewer.h"
#include "support/Identity.h"
#include "support/Names.h"

#include <windows.h>

#include <algorithm>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{
namespace
{
constexpr int c_yes = IDYES;
constexpr int c_removeSettings = 1;

// Lines as a console of that width shows them.
std::vector<std::wstring> Wrap(const std::vector<std::string>& lines, std::size_t width)
{
    std::vector<std::wstring> wrapped;
    for (const std::string& line : lines)
    {
        std::wstring rest(line.begin(), line.end());
        for (; rest.size() > width; rest.erase(0, width))
        {
            wrapped.push_back(rest.substr(0, width));
            wrapped.back().erase(wrapped.back().find_last_not_of(L' ') + 1);
        }
        wrapped.push_back(rest);
    }
    return wrapped;
}

class OtherSwitchesTest : public EndToEndTest
{
protected:
    // The console showed every line of the log, and then asked for a key.
    void ExpectConsole(std::vector<std::string> lines) const
    {
        std::vector<std::wstring> console = Result().console;
        ASSERT_FALSE(console.empty()) << "There was no console, or it did not wait for a key.";
        console.erase(std::ranges::find_if(console, [](const auto& line) { return line.starts_with(L"Press any"); }),
                      console.end());
        for (std::string& line : lines)
        {
            line = ReplaceAll(line, "<pid>", std::to_string(Result().processId));
        }
        EXPECT_EQ(console, Wrap(lines, 80));
    }
};

class HelpTest : public OtherSwitchesTest, public ::testing::WithParamInterface<const wchar_t*>
{
};

TEST_P(HelpTest, Is_shown_in_a_console_and_nothing_is_removed)
{
    LayDownSample();
    Run(GetParam(), {.hasShortLog = true, .hasConsole = true});
    ExpectEnd(c_fullSuccess, HelpLog(), UntouchedState(), false);
    ExpectConsole(HelpLog());
}

INSTANTIATE_TEST_SUITE_P(Switch, HelpTest,
                         ::testing::Values(L"-h", L"--help", L"-S", L"--SILENT", L"/s", L"-s-", L"\"\"", L"-h -s",
                                           L"\u2013s", L"\u00e9\u0416\u65e5\U0001f600"));

TEST_F(OtherSwitchesTest, A_very_long_argument_shows_the_help)
{
    LayDownSample();
    Run(L'-' + std::wstring(30'000, L's'), {.hasShortLog = true, .hasConsole = true});
    ExpectEnd(c_fullSuccess, HelpLog(), UntouchedState(), false);
}

TEST_F(OtherSwitchesTest, Only_the_first_argument_counts)
{
    LayDownSample();
    Run(L"-s -h");
    ExpectFullSuccess();
}

TEST_F(OtherSwitchesTest, The_long_form_of_silent_is_the_same)
{
    LayDownSample();
    Run(L"--silent");
    ExpectFullSuccess();
}

// A switch, and the run type that it is logged as.
struct AskingRun
{
    const wchar_t* arguments;
    const char* type;
};

void PrintTo(const AskingRun& run, std::ostream* stream)
{
    *stream << '"' << ToUtf8(run.arguments) << '"';
}

class AskingRunTest : public OtherSwitchesTest, public ::testing::WithParamInterface<AskingRun>
{
protected:
    static bool IsVerbose() { return GetParam().type == std::string_view("Verbose"); }

    void RunAnswered(const std::vector<DialogAnswer>& answers)
    {
        LayDownSample();
        Run(GetParam().arguments, {.answers = answers, .hasConsole = IsVerbose()});
    }
};

TEST_P(AskingRunTest, A_yes_keeps_the_settings)
{
    std::vector answers{AnswerConfirmation(c_yes)};
    if (!IsVerbose())
    {
        answers.push_back(FullSuccessMessage());
    }
    RunAnswered(answers);
    const ExpectedLog log = ExpectedLog().Runs(GetParam().type);
    ExpectFullSuccess(log);
    if (IsVerbose())
    {
        ExpectConsole(log.Lines());
    }
    else
    {
        EXPECT_TRUE(Result().console.empty());
    }
}

TEST_P(AskingRunTest, A_no_removes_nothing)
{
    RunAnswered({AnswerConfirmation(IDNO, c_removeSettings)});
    ExpectEnd(c_fullSuccess, CancelledLog(GetParam().type), CancelledState(), false);
}

INSTANTIATE_TEST_SUITE_P(Switch, AskingRunTest,
                         ::testing::Values(AskingRun{L"", "Gui"}, AskingRun{L"-g", "Gui"}, AskingRun{L"--gui", "Gui"},
                                           AskingRun{L"-v", "Verbose"}, AskingRun{L"--verbose", "Verbose"}));

TEST_F(OtherSwitchesTest, A_cancel_removes_nothing)
{
    LayDownSample();
    Run(L"", {.answers = {AnswerConfirmation(IDCANCEL)}});
    ExpectEnd(c_fullSuccess, CancelledLog("Gui"), CancelledState(), false);
}

TEST_F(OtherSwitchesTest, A_closed_confirmation_removes_nothing)
{
    LayDownSample();
    Run(L"", {.answers = {AnswerConfirmation({})}});
    ExpectEnd(c_fullSuccess, CancelledLog("Gui"), CancelledState(), false);
}

// The program is elevated, and the user's desktop is not. That one is there first.
class DesktopUserTest : public LimitedDesktop, public EndToEndTest
{
};

TEST_F(DesktopUserTest, Is_shown_a_log_that_tells_of_failures_without_elevation)
{
    LayDownSample();
    const LogViewer viewer;
    const std::wstring kept = InstallFolder() + L"\\read-only.txt";
    WriteTestFile(kept, 10, FILE_ATTRIBUTE_READONLY);
    Run(L"", {.answers = {AnswerConfirmation(c_yes), PartialUninstallMessage()}});
    MachineState state = DeclaredState();
    state.CopyWithParents(kept, Before());
    ExpectPartialUninstall(ExpectedLog().Runs("Gui").Fails(
                               Step::InstallFolder, static_cast<unsigned long>(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)),
                               InstallFolder() + L"\\"),
                           state);
    const LogViewer::Note note = viewer.Read();
    EXPECT_EQ(note.file, ToUtf8(Result().logPath));
    EXPECT_EQ(note.user, ToUtf8(UserOf(LimitedToken().get())));
    EXPECT_EQ(note.elevation, "not elevated");
}
} // namespace
} // namespace Testing
