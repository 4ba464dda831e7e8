// The switches other than the silent one: consoles, the confirmation, and the help.
#include "EndToEndTest.h"
#include "support/end_to_end/Identity.h"
#include "support/end_to_end/LimitedUser.h"
#include "support/end_to_end/LogViewer.h"
#include "support/end_to_end/Names.h"

#include <windows.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace Testing
{
namespace
{
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
    OtherSwitchesTest() { LayDownSample(); }

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
    Run(GetParam(), {.hasShortLog = true, .hasConsole = true});
    ExpectEnd(c_fullSuccess, HelpLog(), UntouchedState(), false);
    ExpectConsole(HelpLog());
}

INSTANTIATE_TEST_SUITE_P(Switch, HelpTest, ::testing::Values(L"--help", L"-h -s", L"\u00e9\u0416\u65e5\U0001f600"));

TEST_F(OtherSwitchesTest, A_yes_keeps_the_settings_and_a_run_with_a_window_has_no_console)
{
    Run(L"--gui", {.answers = {AnswerConfirmation(IDYES), FullSuccessMessage()}});
    ExpectFullSuccess(ExpectedLog().Runs("Gui"));
    EXPECT_TRUE(Result().console.empty());
}

TEST_F(OtherSwitchesTest, A_verbose_run_shows_its_log_in_a_console_and_asks)
{
    Run(L"--verbose", {.answers = {AnswerConfirmation(IDYES)}, .hasConsole = true});
    const ExpectedLog log = ExpectedLog().Runs("Verbose");
    ExpectFullSuccess(log);
    ExpectConsole(log.Lines());
}

// A button of the confirmation, or the frame's close box.
class CancelTest : public OtherSwitchesTest, public ::testing::WithParamInterface<std::optional<int>>
{
};

TEST_P(CancelTest, Removes_nothing)
{
    constexpr int c_removeSettings = 1;
    Run(L"", {.answers = {AnswerConfirmation(GetParam(), c_removeSettings)}});
    ExpectEnd(c_fullSuccess, CancelledLog("Gui"), CancelledState(), false);
}

INSTANTIATE_TEST_SUITE_P(How, CancelTest,
                         ::testing::Values(std::optional(IDNO), std::optional(IDCANCEL), std::nullopt));

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
    Run(L"", {.answers = {AnswerConfirmation(IDYES), PartialUninstallMessage()}});
    MachineState state = DeclaredState();
    state.CopyWithParents(kept, Before());
    ExpectPartialUninstall(ExpectedLog().Runs("Gui").Fails(Step::InstallFolder, ERROR_ACCESS_DENIED), state);
    const LogViewer::Note note = viewer.Read();
    EXPECT_EQ(note.file, ToUtf8(Result().logPath));
    EXPECT_EQ(note.user, ToUtf8(UserOf(LimitedToken().get())));
    EXPECT_EQ(note.elevation, "not elevated");
}
} // namespace
} // namespace Testing
