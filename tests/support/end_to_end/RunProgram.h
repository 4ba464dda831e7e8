// Runs the built uninstaller as anybody would, and reads what it writes to its log while it writes it.
#pragma once

#include "support/end_to_end/Dialogs.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/StandIns.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Testing
{
// The folder of the uninstaller's logs below a temporary folder that ends in a backslash.
std::wstring LogFolderIn(const std::wstring& temporaryFolder);

// The name of a log that was begun at that moment.
std::wstring LogNameAt(std::chrono::system_clock::time_point moment);

// This process's temporary folder; it ends in a backslash.
std::wstring TemporaryFolder();

struct RunOptions
{
    // Environment variables for the program, on top of this process's own.
    std::vector<std::pair<std::wstring, std::wstring>> environment{};
    // The folder in which the logs are looked for.
    std::wstring logFolder = LogFolderIn(TemporaryFolder());
    // Called again and again while the program runs, with all that is in the log by then.
    std::function<void(const std::string& log)> whileRunning{};
    // The process that does the work is ended in the middle of it: when so many lines of the log are written; 0: not.
    int killAfterLines = 0;
    // The dialogs that come, one after the other, and their answers.
    std::vector<DialogAnswer> answers{};
    // The program deletes its log as soon as it is written.
    bool hasShortLog = false;
    // The program is to have a console, in which a key is pressed when it asks for one.
    bool hasConsole = false;
    // The token that it runs with instead of this process's.
    HANDLE token = nullptr;
    // When the program has not ended by then, it is ended, and the run counts as failed.
    std::chrono::milliseconds limit = std::chrono::seconds(90);
    // The run has not ended as long as a program of this name runs, however it was started.
    std::wstring awaited{};
    // What Wine lacks is supplied to the program from outside.
    bool hasStandIns = IsWine();
};

// A process that has ended.
struct EndedProcess
{
    DWORD id = 0;
    DWORD exitCode = 0;
};

struct RunResult
{
    DWORD exitCode = 0;
    // The log as it was written, of a relocated copy too.
    std::string log;
    // The path of the log, whether it is still there or not; empty when none was written. The last one of several.
    std::wstring logPath;
    // The path of the log before, when there were two.
    std::wstring earlierLogPath;
    DWORD processId = 0;
    // The copy that the program went on as.
    std::optional<EndedProcess> copy;
    // Whether the program had ended before its copy.
    bool endedBeforeCopy = false;
    // What stood in the console when a key was asked for.
    std::vector<std::wstring> console;
    std::size_t dialogsAnswered = 0;
    // The controls that it and its copy have sent to services; nothing when it ran without stand-ins: nobody saw them.
    std::optional<std::vector<ServiceControl>> serviceControls{};
    // Whether killAfterLines were written.
    bool wasKilled = false;
    // What the message boxes among them said.
    std::vector<std::wstring> messages;
    std::chrono::milliseconds duration{};
};

// Starts a program as the desktop does, in its own folder, follows its log, answers what it asks, waits for its end and
// for that of the copy that it may go on as, and takes the exit codes from the processes.
// Throws std::runtime_error when it cannot be started, does not end in time, or calls Windows as Windows refuses it.
RunResult RunProgram(const std::wstring& program, const std::wstring& arguments, const RunOptions& options = {});
} // namespace Testing
