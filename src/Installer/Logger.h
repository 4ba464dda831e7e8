#pragma once

#include "Installer/RunType.h"

#include <string>
#include <string_view>

namespace Installer
{

// The log of one run. Every report becomes one line on the process's console (if it has one), in the log file, and in
// the crash reporter: as a breadcrumb or, where the caller asks for it with `capture`, as an event that is sent.
// The file is UTF-8, and its lines end with CR LF. What is not valid text in a message is replaced.
// No report ever fails: what cannot be written is left out. Used from one thread only.
class Logger
{
public:
    // Names the log file after the local time: Uninstaller_<year>_<month>_<day>_<hour>_<minute>_<second>.log in the
    // uninstaller's temporary folder. It comes into being with the first line. A verbose run gets a console.
    explicit Logger(RunType runType);

    // Lets the console of a verbose run go, as a rule not before the user has pressed a key. The file stays.
    ~Logger();

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    void Info(const std::wstring& message) noexcept;
    void Warning(const std::wstring& message, bool capture) noexcept;
    void Error(const std::wstring& message, bool capture) noexcept;

    // Log the text, followed by what an exception says of itself. Memory may have run out; then there is no line.
    void Warning(const wchar_t* text, const char* what, bool capture) noexcept;
    void Error(const wchar_t* text, const char* what, bool capture) noexcept;

    // Shows the log to the desktop's user, in GUI runs only. A log that cannot be shown is a warning in it. Throws
    // std::filesystem::filesystem_error when the file system cannot tell whether there is a log.
    void OpenLog();

    // Lets the console go without waiting for a key: for a run that another process goes on with.
    void ClearPauseOnClose() noexcept { m_pauseOnClose = false; }

    // The full path of the log file.
    std::wstring LogPath() const { return m_logPath; }

private:
    void WriteLine(std::wstring_view tag, const std::wstring& message) noexcept;

    RunType m_runType;
    std::wstring m_logPath;
    bool m_pauseOnClose = false;
};

} // namespace Installer
