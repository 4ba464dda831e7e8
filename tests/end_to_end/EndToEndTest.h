// What every end-to-end test stands on: it lays something down, runs the built program, and compares the whole state of
// the machine, the exit code and the log with what is declared.
#pragma once

#include "ExpectedLog.h"
#include "support/MachineState.h"
#include "support/RunProgram.h"
#include "support/SampleInstallation.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Testing
{
// The exit codes of a run.
inline constexpr unsigned long c_fullSuccess = 0;
inline constexpr unsigned long c_partialUninstall = 18;

class EndToEndTest : public ::testing::Test
{
protected:
    EndToEndTest();
    ~EndToEndTest() override;

    // Starts the program from the user's downloads, waits for its end, and takes the machine's state before and after.
    void Run(const std::wstring& arguments = L"-s", RunOptions options = {});

    // The state that the last run must have led to when it removed what is declared, and left behind what every run
    // does.
    MachineState DeclaredState() const;

    // The same for a run that could not make its log's folder where it usually is.
    MachineState DeclaredStateWithoutLogFolder() const;

    // The state that a run must have led to that removed nothing at all.
    MachineState UntouchedState() const;

    // The run ended in full success: exit code 0, the log as expected and then deleted, the state as expected.
    void ExpectFullSuccess(const ExpectedLog& log = {}) const;
    void ExpectFullSuccess(const ExpectedLog& log, const MachineState& state) const;

    // The run ended with exit code 18, and its log was kept.
    void ExpectPartialUninstall(const ExpectedLog& log, const MachineState& state) const;

    // Only the state is compared.
    void ExpectState(const MachineState& expected) const;

    // The state before the last run, and what the run gave.
    const MachineState& Before() const { return m_before; }
    const RunResult& Result() const { return m_result; }

    // Further drives that belong to the state.
    void WatchDrive(wchar_t letter) { m_furtherDrives += letter; }

private:
    void ExpectLog(const ExpectedLog& log) const;

    std::wstring m_program;
    std::wstring m_furtherDrives;
    RawValue m_pathAtStart = ReadMachinePath();
    std::chrono::system_clock::time_point m_started;
    MachineState m_before;
    MachineState m_after;
    RunResult m_result;
};
} // namespace Testing
