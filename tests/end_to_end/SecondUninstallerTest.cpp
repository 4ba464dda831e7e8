// Two uninstallers at the same time: whichever is first, both come to an end, and the machine is clean.
#include "EndToEndTest.h"
#include "support/Names.h"
#include "support/Owners.h"

#include <windows.h>

#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace Testing
{
namespace
{
class SecondUninstallerTest : public EndToEndTest
{
protected:
    // Runs an uninstaller, and a second one that is started as soon as the line is in the first one's log. The first
    // one does not get to its end before: with a window, it waits for somebody who has seen its result.
    void RunTwo(std::string_view line, const std::wstring& secondArguments = L"-s",
                const RunOptions& secondOptions = {})
    {
        RunOptions first = WithSecond(line, ProgramPath(), secondArguments, secondOptions);
        first.answers = {AnswerConfirmation(IDYES), FullSuccessMessage()};
        Run(L"-g", first);
    }

    // Runs two silent ones that are started at the same time. Whoever uninstalls does not get to the end of it before
    // the other one is refused: a file is in use until then.
    void RunTwoAtOnce()
    {
        UniqueHandle held = OwnFile(CreateFileW((InstallFolder() + LR"(\current\Velmora.exe)").c_str(), GENERIC_READ,
                                                FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        ASSERT_TRUE(held);
        RunOptions second;
        second.whileRunning = [&](const std::string& log) {
            if (log.find("Only one instance") != std::string::npos)
            {
                held.reset();
            }
        };
        // True before there is any log.
        Run(L"-s", WithSecond("", ProgramPath(), L"-s", second));
    }

    // Runs a silent one in the installation folder, and a second one there as soon as the line is in the first one's
    // log.
    void RunTwoInstalled(std::string_view line)
    {
        // Without stand-ins, which there is no service for: the first one may end the second before they are loaded.
        RunOptions first = WithSecond(line, InstalledProgram(), L"-s", {.hasStandIns = false});
        first.hasStandIns = false;
        RunInstalled(L"-s", first);
    }

    const RunResult& Second() const { return *m_second; }

    // Everything is gone as it is to be; what the two have noted down lies there in whatever order.
    void ExpectClean(MachineState state) const
    {
        CopyTraces(state, After());
        ExpectState(state);
    }

    // The first one was not disturbed, and the second one ended at once because of it.
    void ExpectSecondRefused(std::string_view runType) const
    {
        EXPECT_EQ(Result().exitCode, c_fullSuccess);
        EXPECT_EQ(Second().exitCode, c_alreadyRunning);
        // Two that were started in the same second have one log, which the first one deletes.
        EXPECT_NE((Second().log + Result().log).find(SecondInstanceLog(runType).back() + "\r\n"), std::string::npos);
        ExpectClean(DeclaredState());
    }

private:
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

    std::optional<RunResult> m_second;
};

TEST_F(SecondUninstallerTest, Started_at_once_only_one_of_them_uninstalls)
{
    LayDownSample();
    RunTwoAtOnce();
    // Either may be the first to find nobody else.
    EXPECT_EQ(Result().exitCode + Second().exitCode, c_fullSuccess + c_alreadyRunning);
    ExpectClean(DeclaredState());
}

TEST_F(SecondUninstallerTest, Started_in_the_middle_of_the_first_it_is_refused)
{
    LayDownSample();
    RunTwo("Deleting installation folder...");
    ExpectSecondRefused("Silent");
}

TEST_F(SecondUninstallerTest, With_a_window_it_says_why_and_the_first_goes_on_meanwhile)
{
    LayDownSample();
    RunTwo("Stopping Velmora...", L"-g",
           {.answers = {
                ErrorMessage(L"Velmora Uninstaller Failed",
                             L"Only one instance of the Velmora installer/uninstaller can run at a time. Please make "
                             L"sure no other instances are open and try again. If this fails to fix the problem, "
                             L"restart your device.")}});
    EXPECT_EQ(Second().dialogsAnswered, 1U);
    ExpectSecondRefused("Gui");
}

// When the second of two installed ones is started.
struct Meeting
{
    const char* name;
    const char* line;
};

void PrintTo(const Meeting& meeting, std::ostream* stream)
{
    *stream << meeting.name;
}

class SecondInstalledUninstallerTest : public SecondUninstallerTest, public ::testing::WithParamInterface<Meeting>
{
};

TEST_P(SecondInstalledUninstallerTest, One_of_their_copies_uninstalls)
{
    LayDownSample();
    RunTwoInstalled(GetParam().line);
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
                         ::testing::Values(Meeting{"at_once", ""},
                                           Meeting{"during_the_copying", "Uninstaller is running inside"},
                                           Meeting{"at_the_hand_over", "Starting \""}),
                         [](const auto& meeting) { return std::string(meeting.param.name); });
} // namespace
} // namespace Testing
