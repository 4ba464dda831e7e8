#pragma once

#include "Installer/RunType.h"
#include "Installer/UninstallerTempFolder.h"

#include <string>
#include <string_view>

namespace Installer
{

// The log of one run. Each message is one line in the log file and on the console (if there is one), and a breadcrumb
// of crash reporting or, with `capture`, an event that is sent. The file is UTF-8 with CR LF; invalid UTF-16 is
// replaced. Logging never fails: what cannot be written is dropped. Not thread-safe.
class Logger
{
public:
    // Names the log file Uninstaller_<year>_<month>_<day>_<hour>_<minute>_<second>.log (local time), in the
    // uninstaller's temporary folder, which it holds. The first line creates the file; there is none if the folder is
    // not private, or if something else cannot be removed from the file's place. Allocates a console in verbose runs.
    explicit Logger(RunType runType);

    // Frees a verbose run's console, after a key press unless ClearPauseOnClose was called. The file stays.
    ~Logger();

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    void Info(const std::wstring& message) noexcept;
    void Warning(const std::wstring& message, bool capture) noexcept;
    void Error(const std::wstring& message, bool capture) noexcept;

    // Log `text` followed by `what`, an exception's message. Dropped when out of memory.
    void Warning(const wchar_t* text, const char* what, bool capture) noexcept;
    void Error(const wchar_t* text, const char* what, bool capture) noexcept;

    // Opens the log as the desktop's user, in GUI runs only. A failure to open it is logged as a warning. Throws
    // std::system_error when it cannot be determined whether the file exists.
    void OpenLog();

    // Frees the console without waiting for a key press: another process continues this run.
    void ClearPauseOnClose() noexcept { m_pauseOnClose = false; }

    // Whether the log is written to a file.
    bool WritesFile() const noexcept { return m_writesFile; }

    // The full path of the log file.
    std::wstring LogPath() const { return m_logPath; }

private:
    Logger(RunType runType, const std::wstring& name, UninstallerTempFolder folder);

    void WriteLine(std::wstring_view tag, const std::wstring& message) noexcept;

    bool FileExists() const;

    RunType m_runType;
    UninstallerTempFolder m_folder;
    std::wstring m_logPath;
    bool m_writesFile;
    bool m_pauseOnClose = false;
};

} // namespace Installer
