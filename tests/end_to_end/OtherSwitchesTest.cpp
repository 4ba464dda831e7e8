// The switches other than the silent one: consoles, the confirmation, and the help.
#include "EndToEndTest.h"
#include "support/end_to_end/Names.h"

#include <windows.h>

#include <algorithm>
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

TEST_F(OtherSwitchesTest, What_is_no_switch_shows_the_help_in_a_console_and_nothing_is_removed)
{
    Run(L"\u00e9\u0416\u65e5\U0001f600", {.hasShortLog = true, .hasConsole = true});
    ExpectEnd(c_fullSuccess, HelpLog(), UntouchedState(), false);
    ExpectConsole(HelpLog());
}

TEST_F(OtherSwitchesTest, A_verbose_run_shows_its_log_in_a_console_and_asks)
{
    Run(L"--verbose", {.answers = {AnswerConfirmation(IDYES)}, .hasConsole = true});
    const ExpectedLog log = ExpectedLog().Runs("Verbose");
    ExpectFullSuccess(log);
    ExpectConsole(log.Lines());
}

TEST_F(OtherSwitchesTest, A_confirmation_that_is_closed_by_its_frame_removes_nothing)
{
    constexpr int c_removeSettings = 1;
    Run(L"", {.answers = {AnswerConfirmation({}, c_removeSettings)}});
    ExpectEnd(c_fullSuccess, CancelledLog("Gui"), CancelledState(), false);
}
} // namespace
} // namespace Testing
