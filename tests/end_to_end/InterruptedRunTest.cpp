// The program is ended in the middle of its work, at one moment after the other, and started again each time.
#include "EndToEndTest.h"
#include "support/Names.h"
#include "support/Servers.h"

#include <algorithm>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{
namespace
{
// When the program is ended: as soon as this is so.
struct Moment
{
    std::string name;
    std::function<bool(const std::string& log)> hasCome;
};

// The line is in the log, for the first time or for the second, which is the copy's.
Moment AfterLine(std::string_view line, int times = 1)
{
    return {.name = "after \"" + std::string(line) + "\"", .hasCome = [=](const std::string& log) {
                std::size_t found = 0;
                for (int time = 0; time < times && found != std::string::npos; ++time)
                {
                    found = log.find(line, time == 0 ? 0 : found + line.size());
                }
                return found != std::string::npos;
            }};
}

Moment WithHalfOfTheFolderGone()
{
    return {.name = "with half of the installation folder gone", .hasCome = [](const std::string& log) {
                constexpr std::size_t c_half = 50;
                return log.find("Deleting installation folder...") != std::string::npos &&
                       MeasureTree(InstallFolder()).files < c_half;
            }};
}

// Moments that share a test, for it takes long to make a Windows.
struct Stage
{
    std::string name;
    std::vector<Moment> moments;
};

void PrintTo(const Stage& stage, std::ostream* stream)
{
    *stream << stage.name;
}

class InterruptedRunTest : public EndToEndTest, public ::testing::WithParamInterface<Stage>
{
protected:
    // Starts the installed program and ends it at that moment. When it was faster, it is given a second and a third
    // try.
    void RunUntil(const Moment& moment)
    {
        constexpr int c_tries = 3;
        for (int tries = 0; tries < c_tries && !WasKilled(); ++tries)
        {
            WriteMachinePath(m_path);
            LayDownSample();
            // No service runs, so there is nothing to stand in for.
            RunInstalled(L"-s", {.killWhen = moment.hasCome, .hasStandIns = false});
        }
        EXPECT_TRUE(WasKilled()) << "It was never ended.";
    }

    // What the run has not removed is as it was, and what it has changed is as it is to be in the end: nothing is half
    // done but trees.
    void ExpectNothingTorn() const
    {
        const MachineState declared = AfterUninstall(Before(), false);
        MachineState found = EndToEndTest::After();
        CopyTraces(found, Before());
        std::vector<std::string> torn;
        for (const auto& [path, entry] : found.All())
        {
            const auto isAsIn = [&](const MachineState& state) {
                const StateEntry* const there = state.Find(path);
                return there != nullptr && *there == entry;
            };
            if (!IsAtOrBelow(path, TemporaryFolder() + L"Velmora") && !isAsIn(Before()) && !isAsIn(declared))
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
        const MachineState left = EndToEndTest::After();
        ExpectedLog log;
        const bool hasRecord = left.Find(std::wstring(c_entry) + L" : InstallLocation") != nullptr;
        if (!hasRecord)
        {
            log.FindsNoRecord();
        }
        if (left.Find(InstallFolder()) == nullptr)
        {
            log.LeavesOut(Step::InstallFolder);
        }
        log.Migrates(Migration(left));
        const bool isInstalled = left.Find(InstalledProgram()) != nullptr;
        GoOn();
        isInstalled ? RunInstalled() : Run();
        MachineState state = isInstalled ? RelocatedState() : DeclaredState();
        // What the run that was ended had noted for a report of its crash.
        state.Erase(LogFolderIn(TemporaryFolder()) + L"Sentry");
        // It has the log of that run's second, too, when it was started in it.
        state.Erase(Result().logPath);
        if (isInstalled)
        {
            std::vector<std::string> first = RelocationLog("Silent", RelocatedCopy(), "-s");
            if (!hasRecord)
            {
                // Both processes look for the record after their first four lines.
                const auto lines = log.Lines();
                first.erase(first.begin() + 4);
                first.insert(first.begin() + 4, lines.begin() + 4, lines.begin() + 6);
            }
            ExpectRelocatedEnd(c_fullSuccess, first, log.Lines(), state);
        }
        else
        {
            ExpectFullSuccess(log, state);
        }
        RemoveTree(TemporaryFolder() + L"Velmora");
    }

private:
    static constexpr std::wstring_view c_entry = LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)";

    bool WasKilled() const
    {
        return Result().exitCode == c_killed || (Result().copy && Result().copy->exitCode == c_killed);
    }

    // What the migrator says about what is left of the legacy package.
    static std::vector<std::string> Migration(const MachineState& left)
    {
        constexpr std::wstring_view c_packages = LR"(HKLM\SOFTWARE\Velmora.Testing\Packages\)";
        MigratorLog log;
        if (left.Find(std::wstring(c_packages) + LR"(Provisioned\Velmora)") != nullptr)
        {
            log.Deprovisions();
        }
        if (left.Find(std::wstring(c_packages) + LR"(Installed\Velmora)") != nullptr)
        {
            log.Removes(LegacyPackageFolder());
        }
        return log.Lines();
    }

    RawValue m_path = ReadMachinePath();
};

TEST_P(InterruptedRunTest, Is_completed_by_the_next_one)
{
    for (const Moment& moment : GetParam().moments)
    {
        SCOPED_TRACE("The program was ended " + moment.name + ".");
        RunUntil(moment);
        ExpectNothingTorn();
        ExpectCompletion();
    }
}

const std::vector<Stage>& Stages()
{
    static const std::vector<Stage> stages{
        {"Relocation",
         {AfterLine("Uninstaller is running inside installation directory."), AfterLine("This process will now exit"),
          AfterLine("Running the Velmora uninstaller", 2)}},
        {"Shutdown_and_shortcuts",
         {AfterLine("Velmora will leave user directories as-is."), AfterLine("No processes found locking"),
          AfterLine("Deleting desktop shortcut..."), AfterLine("Deleting start menu shortcut...")}},
        {"Services_path_and_firewall",
         {AfterLine("Uninstalling updater service..."), AfterLine("Uninstalling authorization service..."),
          AfterLine("Removing from path..."), AfterLine("Deleting firewall rules...")}},
        {"Registrations",
         {AfterLine("Removing startup entry..."), AfterLine("Deregistering application from system..."),
          AfterLine("Removing uninstall entry...")}},
        {"Folders",
         {AfterLine("Deleting installation folder..."), WithHalfOfTheFolderGone(),
          AfterLine("Deleting OrvaneAuthService folders..."), AfterLine("Deleting VelmoraUpdater folder...")}},
        {"Package",
         {AfterLine("Searching for provisioned"), AfterLine("Deprovisioned"), AfterLine("Preparing to remove"),
          AfterLine("Uninstall Complete!")}},
    };
    return stages;
}

INSTANTIATE_TEST_SUITE_P(During, InterruptedRunTest, ::testing::ValuesIn(Stages()),
                         [](const auto& stage) { return stage.param.name; });
} // namespace
} // namespace Testing
