// Runs the built uninstaller as anybody would, and reads what it writes to its log while it writes it.
#pragma once

#include "support/Owners.h"

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Testing
{
// The folder of the uninstaller's logs below a temporary folder that ends in a backslash.
std::wstring LogFolderIn(const std::wstring& temporaryFolder);

// This process's temporary folder; it ends in a backslash.
std::wstring TemporaryFolder();

// Reads the uninstaller's logs as they grow, from the moment it is made. A log is held open with full sharing, so it is
// read to its end even when it has been deleted, and nothing that others do with it is hindered.
class LogFollower
{
public:
    explicit LogFollower(std::wstring folder);

    // Takes in what has been written since the last call.
    void Read();

    // All that has been read so far, one log after the other.
    std::string Text() const;

    // The full paths of the logs seen, in the order in which they appeared.
    std::vector<std::wstring> Paths() const;

private:
    struct Log
    {
        std::wstring path;
        UniqueHandle file;
        std::string text;
    };

    void FindNewLogs(bool fromTheirEnd);

    std::wstring m_folder;
    std::vector<Log> m_logs;
};

struct RunOptions
{
    // Environment variables for the program, on top of this process's own.
    std::vector<std::pair<std::wstring, std::wstring>> environment{};
    // The folder in which the logs are looked for.
    std::wstring logFolder = LogFolderIn(TemporaryFolder());
    // Called again and again while the program runs, with all that is in the log by then.
    std::function<void(const std::string& log)> whileRunning{};
    // When the program has not ended by then, it is ended, and the run counts as failed.
    std::chrono::milliseconds limit = std::chrono::seconds(90);
};

struct RunResult
{
    DWORD exitCode = 0;
    // The log as it was written.
    std::string log;
    // The path of the log, whether it is still there or not; empty when none was written.
    std::wstring logPath;
    DWORD processId = 0;
    std::chrono::milliseconds duration{};
};

// Starts a program, follows its log, waits for its end and takes the exit code from the process.
// Throws std::runtime_error when it cannot be started or does not end in time.
RunResult RunProgram(const std::wstring& program, const std::wstring& arguments, const RunOptions& options = {});
} // namespace Testing
