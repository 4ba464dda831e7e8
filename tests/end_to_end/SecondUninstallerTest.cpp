// Two uninstallers at the same time: whichever is first, both come to an end, and the machine is clean.
#include "EndToEndTest.h"
#include "support/end_to_end/Names.h"

#include <windows.h>

#include <optional>
#include <string>
#include <string_view>

namespace Testing
{
namespace
{
class SecondUninstallerTest : public EndToEndTest
{
protected:
    const RunResult& Second() const { return *m_second; }

    // Everything is gone as it is to be; what the two have noted down lies there in whatever order.
    void ExpectClean(MachineState state) const
    {
        CopyTraces(state, After());
        ExpectState(state);
    }

    // Has a second one run as soon as the line is in the first one's log.
    RunOptions WithSecond(std::string_view line, const std::wstring& program, const std::wstring& arguments,
                          const RunOptions& options)
    {
        return {.whileRunning = [=, this](const std::string& log) {
            if (!m_second && log.find(line) != std::string::npos)
            {
                m_second = RunProgram(program, arguments, options);
            }
        }};
    }

private:
    std::optional<RunResult> m_second;
};

TEST_F(SecondUninstallerTest, With_a_window_it_says_why_it_ends_and_the_first_goes_on_meanwhile)
{
    LayDownSample();
    const std::wstring refusal =
        L"Only one instance of the Velmora installer/uninstaller can run at a time. Please make sure no other "
        L"instances are open and try again. If this fails to fix the problem, restart your device.";
    // The first one waits for somebody who has seen its result: it does not get to its end before.
    RunOptions first = WithSecond(RowOf(Step::InstallFolder).shown, ProgramPath(), L"-g",
                                  {.answers = {{.title = L"Velmora Uninstaller Failed", .message = refusal}}});
    first.answers = {AnswerConfirmation(IDYES), FullSuccessMessage()};
    Run(L"-g", first);
    EXPECT_EQ(Result().exitCode, c_fullSuccess);
    EXPECT_EQ(Second().exitCode, c_alreadyRunning);
    EXPECT_EQ(Second().messages, std::vector{refusal});
    // Two that were started in the same second have one log, which the first one deletes.
    EXPECT_NE((Second().log + Result().log).find(std::string(c_errorTag) + ToUtf8(refusal) + "\r\n"),
              std::string::npos);
    ExpectClean(DeclaredState());
}

// The second of two installed ones is started when this is in the first one's log: at once, while the program is
// copied, and when the copy is started.
class SecondInstalledUninstallerTest : public SecondUninstallerTest, public ::testing::WithParamInterface<const char*>
{
};

TEST_P(SecondInstalledUninstallerTest, One_of_their_copies_uninstalls)
{
    LayDownSample();
    // Without stand-ins, which there is no service for: the first one may end the second before they are loaded.
    RunOptions first = WithSecond(GetParam(), InstalledProgram(), L"-s", {.hasStandIns = false});
    first.hasStandIns = false;
    RunInstalled(L"-s", first);
    // For a moment, while the first one hands over to its copy, neither has the machine: the second one may take it,
    // and then it is the copy that is refused. Or it is found by the copy, as a program that runs from the folder, and
    // ended.
    const auto isExpected = [](unsigned long code) { return code == c_fullSuccess || code == c_alreadyRunning; };
    unsigned copiesDone = 0;
    for (const RunResult* const result : {&Result(), &Second()})
    {
        EXPECT_TRUE(isExpected(result->exitCode)) << result->exitCode;
        if (result->copy)
        {
            EXPECT_TRUE(isExpected(result->copy->exitCode)) << result->copy->exitCode;
            copiesDone += result->copy->exitCode == c_fullSuccess ? 1 : 0;
        }
    }
    EXPECT_GE(copiesDone, 1U);
    ExpectClean(RelocatedState());
}

INSTANTIATE_TEST_SUITE_P(When, SecondInstalledUninstallerTest,
                         ::testing::Values("", "Uninstaller is running inside", "Starting \""));
} // namespace
} // namespace Testing
