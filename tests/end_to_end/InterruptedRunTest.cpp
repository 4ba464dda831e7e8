// The program is ended in the middle of its work, at one moment after the other, and started again each time.
#include "EndToEndTest.h"
#include "support/end_to_end/Names.h"

#include <algorithm>
#include <string>
#include <vector>

namespace Testing
{
namespace
{
// Every line of the log in turn, dealt out to a few tests.
class InterruptedLineTest : public EndToEndTest, public ::testing::WithParamInterface<int>
{
protected:
    // Starts the installed program on a full installation, ends it after that line of its log, and starts it again.
    void ExpectSafeEnd(int line)
    {
        SCOPED_TRACE("The program was ended after line " + std::to_string(line) + " of its log.");
        WriteMachinePath(m_path);
        LayDownSample();
        RunInstalled(L"-s", {.killAfterLines = line});
        ASSERT_TRUE(Result().wasKilled);
        ExpectNothingTorn();
        ExpectCompletion();
    }

private:
    // What the run has not removed is as it was, and what it has changed is as it is to be in the end: nothing is half
    // done but trees.
    void ExpectNothingTorn() const
    {
        const MachineState declared = AfterUninstall(Before(), false);
        MachineState found = After();
        CopyTraces(found, Before());
        std::vector<std::string> torn;
        for (const auto& [path, entry] : found.All())
        {
            const StateEntry* const before = Before().Find(path);
            const StateEntry* const there = declared.Find(path);
            if ((before == nullptr || *before != entry) && (there == nullptr || *there != entry) &&
                !IsAtOrBelow(path, TemporaryFolder() + L"Velmora"))
            {
                torn.push_back(ToUtf8(path) + ": " + Describe(entry));
            }
        }
        for (const auto& [path, entry] : declared.All())
        {
            if (found.Find(path) == nullptr)
            {
                torn.push_back(ToUtf8(path) + ": gone");
            }
        }
        EXPECT_EQ(torn, std::vector<std::string>{});
    }

    // Starts the program once more, the installed one if it is still there, and expects it to find what is left and to
    // leave nothing.
    void ExpectCompletion()
    {
        const bool isInstalled = After().Find(InstalledProgram()) != nullptr;
        GoOn();
        isInstalled ? RunInstalled() : Run();
        EXPECT_EQ(Result().exitCode, c_fullSuccess);
        EXPECT_EQ(Result().copy ? Result().copy->exitCode : c_fullSuccess, c_fullSuccess);
        MachineState state = isInstalled ? RelocatedState() : DeclaredState();
        // What the run that was ended had noted for a report of its crash.
        state.Erase(LogFolderIn(TemporaryFolder()) + L"Sentry");
        // It has the log of that run's second, too, when it was started in it.
        state.Erase(Result().logPath);
        ExpectState(state);
        RemoveTree(TemporaryFolder() + L"Velmora");
    }

    StateEntry m_path = ReadMachinePath();
};

constexpr int c_hands = 6;

TEST_P(InterruptedLineTest, Is_completed_by_the_next_run)
{
    LayDownSample();
    RunInstalled();
    const auto lines = static_cast<int>(std::ranges::count(Result().log, '\n'));
    ASSERT_GT(lines, 30);
    for (int line = GetParam() + 1; line <= lines; line += c_hands)
    {
        ExpectSafeEnd(line);
    }
}

INSTANTIATE_TEST_SUITE_P(After_one_line_in_six, InterruptedLineTest, ::testing::Range(0, c_hands));
} // namespace
} // namespace Testing
