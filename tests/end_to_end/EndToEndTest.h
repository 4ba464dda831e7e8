// What every end-to-end test stands on: it lays something down, runs the built program, and compares the whole state of
// the machine, the exit code and the log with what is declared.
#pragma once

#include "ExpectedLog.h"
#include "support/end_to_end/MachineState.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/RunProgram.h"
#include "support/end_to_end/SampleInstallation.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace Testing
{
// The exit codes of a run.
inline constexpr unsigned long c_fullSuccess = 0;
inline constexpr unsigned long c_notElevated = 9;
inline constexpr unsigned long c_alreadyRunning = 10;
inline constexpr unsigned long c_clientRunning = 12;
inline constexpr unsigned long c_copyFailed = 16;
inline constexpr unsigned long c_partialUninstall = 18;

// How a user answers the question whether to uninstall.
DialogAnswer AnswerConfirmation(std::optional<int> button, std::optional<int> radioButton = {});

// What a run with a window tells the user in the end; the user closes it.
DialogAnswer FullSuccessMessage();
DialogAnswer PartialUninstallMessage();

class EndToEndTest : public ::testing::Test
{
protected:
    EndToEndTest();
    ~EndToEndTest() override;

    // Starts the program from the user's downloads, waits for its end, and takes the machine's state before and after.
    void Run(const std::wstring& arguments = L"-s", RunOptions options = {});

    // Puts the program into the installation folder and starts it there.
    void RunInstalled(const std::wstring& arguments = L"-s", RunOptions options = {});

    // The next run is made on what the last one has left, with nothing done since: the state is not taken again before.
    void GoOn() { m_goesOn = true; }

    // Where the program is that RunInstalled starts, and the copy that it goes on as.
    static std::wstring InstalledProgram();
    static std::wstring RelocatedCopy(const std::wstring& temporaryFolder = TemporaryFolder());

    // Starts that program, waits for its end, and takes the machine's state before and after.
    void RunAt(const std::wstring& program, const std::wstring& arguments, const RunOptions& options);

    // The state that the last run must have led to when it removed what is declared, and left behind what every run
    // does. What the servers were asked for is taken as it is.
    MachineState DeclaredState(bool removeUserSettings = false) const;

    // The same, but with these paths and everything below them as they were.
    MachineState DeclaredStateWith(const std::vector<std::wstring>& kept) const;

    // The same when it was a run of the uninstaller at that place.
    MachineState DeclaredStateOf(const std::wstring& program) const;

    // The same for a run that went on as its copy: that is left instead, with the log of the first process.
    MachineState RelocatedState(const std::wstring& temporaryFolder = TemporaryFolder()) const;

    // The state that a run must have led to that removed nothing at all, and asked no server for anything.
    MachineState UntouchedState() const;

    // The same for a run that the user cancelled: the program is scheduled for deletion all the same.
    MachineState CancelledState() const;

    // Adds to a state the file that Windows is to delete at its next start; and a file as it was after the last run.
    static void AddPendingDeletion(MachineState& state, const std::wstring& path);
    void CopyAfter(MachineState& state, const std::wstring& path) const { state.CopyWithParents(path, m_after); }

    // Takes into a state what more than one run leaves in an order that nobody knows, as it is in another state: the
    // logs, the list of the files that Windows is to delete, and what the servers were asked for.
    static void CopyTraces(MachineState& state, const MachineState& source);

    // The program that Run starts.
    const std::wstring& ProgramPath() const { return m_program; }

    // The run ended in full success: exit code 0, the log as expected and then deleted, the state as expected.
    void ExpectFullSuccess(const ExpectedLog& log = {}) const;
    void ExpectFullSuccess(const ExpectedLog& log, const MachineState& state) const;

    // The run ended with exit code 18, and its log was kept.
    void ExpectPartialUninstall(const ExpectedLog& log, const MachineState& state) const;

    // The run ended with that exit code and log. The log was kept, and is part of the state that is expected, or not.
    void ExpectEnd(unsigned long exitCode, const std::vector<std::string>& lines, const MachineState& state,
                   bool keepsLog) const;

    // The run went on as its copy, which ended with that exit code; these are the lines of the two. The state is
    // expected to hold the log of the first process.
    void ExpectRelocatedEnd(unsigned long exitCode, const std::vector<std::string>& lines,
                            const std::vector<std::string>& copyLines, const MachineState& state) const;

    // The lines of a log: each ends with a carriage return and a line feed.
    static std::vector<std::string> SplitLines(const std::string& text);

    // Only the state is compared.
    void ExpectState(const MachineState& expected) const;

    // The state before and after the last run, and what the run gave.
    const MachineState& Before() const { return m_before; }
    const MachineState& After() const { return m_after; }
    const RunResult& Result() const { return m_result; }

    // Further drives that belong to the state.
    void WatchDrive(wchar_t letter) { m_furtherDrives += letter; }

private:
    std::vector<std::string> LogLines() const;
    void ExpectLogName() const;
    void ExpectKeptLog(MachineState& state) const;
    MachineState StateAfter(const std::wstring& program, bool removeUserSettings = false) const;

    std::wstring m_program;
    std::wstring m_furtherDrives;
    StateEntry m_pathAtStart = ReadMachinePath();
    std::chrono::system_clock::time_point m_started;
    bool m_goesOn = false;
    MachineState m_before;
    MachineState m_after;
    RunResult m_result;
};
} // namespace Testing
