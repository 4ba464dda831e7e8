#include "Uninstaller/Ending.h"

#include "Installer/Text.h"
#include "Uninstaller/CrashReporting.h"
#include "Uninstaller/EndOfProcess.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <iterator>
#include <string>

namespace Uninstaller
{

namespace
{

enum class Line
{
    None,
    Info,
    Error,
    CapturedError, // also sent as a crash-reporting event
};

enum class Icon
{
    None,
    Error,
    Warning,
    Info,
};

enum class Log
{
    Kept,
    Opened, // and kept
    Deleted,
};

// The running executable cannot be deleted before it exits.
enum class OwnFile
{
    Kept,
    DeletedAtRestart,
};

// The process that continues the run.
enum class Successor
{
    None,
    Copy, // it takes over the pending crash reports; this process exits without a key press
};

using Text = std::wstring (*)(ExitCode code, const Ending& ending);

std::wstring CodeMessage(ExitCode code, const Ending&)
{
    return exitCodeMessage(code);
}

std::wstring EndingText(ExitCode, const Ending& ending)
{
    return ending.text;
}

template <const auto& Words>
std::wstring FixedText(ExitCode, const Ending&)
{
    return Words;
}

constexpr wchar_t c_cancelled[] = L"User canceled the uninstaller.";
constexpr wchar_t c_removed[] = L"Velmora has been successfully uninstalled.";
constexpr wchar_t c_partiallyRemoved[] =
    L"Velmora did not fully uninstall. Please check the logs for more information.";
constexpr wchar_t c_filesMayRemain[] =
    L"Velmora has been successfully uninstalled, but some files may remain. See the logs for more information.";

constexpr wchar_t c_versionCaption[] = L"Version Not Supported";
constexpr wchar_t c_elevationCaption[] = L"Uninstaller Not Elevated";
constexpr wchar_t c_failureCaption[] = L"Velmora Uninstaller Failed";
constexpr wchar_t c_removedCaption[] = L"Velmora Uninstalled";
constexpr wchar_t c_partialCaption[] = L"Velmora Partially Uninstalled";

// The columns are in the order in which EndRun carries them out.
struct Row
{
    Outcome outcome;
    ExitCode code;
    Line line;
    Text lineText;
    Icon icon; // of the message box; only in runs with a window
    const wchar_t* caption;
    Text messageBoxText;
    Log log;
    OwnFile ownFile;
    Successor successor;
};

// In the order of Outcome.
// clang-format off
constexpr Row c_rows[] = {
    {Outcome::HelpShown,         EXIT_NO_ERROR,
        Line::None,          nullptr,                       Icon::None,    nullptr,            nullptr,
        Log::Deleted, OwnFile::Kept,             Successor::None},
    {Outcome::WindowsTooOld,     EXIT_ERROR_WINDOWS_VERSION,
        Line::Error,         CodeMessage,                   Icon::Error,   c_versionCaption,   CodeMessage,
        Log::Kept,    OwnFile::Kept,             Successor::None},
    {Outcome::NotElevated,       EXIT_ERROR_NOT_ELEVATED,
        Line::Error,         CodeMessage,                   Icon::Error,   c_elevationCaption, CodeMessage,
        Log::Kept,    OwnFile::Kept,             Successor::None},
    {Outcome::AlreadyRunning,    EXIT_ERROR_ALREADY_RUNNING,
        Line::Error,         CodeMessage,                   Icon::Error,   c_failureCaption,   CodeMessage,
        Log::Kept,    OwnFile::Kept,             Successor::None},
    {Outcome::CopyFailed,        EXIT_ERROR_COPY_TO_TEMP,
        Line::CapturedError, EndingText,                    Icon::Error,   c_failureCaption,   EndingText,
        Log::Opened,  OwnFile::Kept,             Successor::None},
    {Outcome::RelocationAborted, EXIT_ERROR_COPY_TO_TEMP,
        Line::CapturedError, EndingText,                    Icon::Error,   c_failureCaption,   EndingText,
        Log::Opened,  OwnFile::Kept,             Successor::None},
    {Outcome::CopyNotStarted,    EXIT_ERROR_RUN_FROM_TEMP,
        Line::CapturedError, EndingText,                    Icon::Error,   c_failureCaption,   CodeMessage,
        Log::Opened,  OwnFile::DeletedAtRestart, Successor::None},
    {Outcome::CopyStarted,       EXIT_NO_ERROR,
        Line::None,          nullptr,                       Icon::None,    nullptr,            nullptr,
        Log::Kept,    OwnFile::Kept,             Successor::Copy},
    {Outcome::Cancelled,         EXIT_NO_ERROR,
        Line::Info,          FixedText<c_cancelled>,        Icon::None,    nullptr,            nullptr,
        Log::Deleted, OwnFile::DeletedAtRestart, Successor::None},
    {Outcome::UnexpectedButton,  EXIT_ERROR_PERMISSION_DIALOG_FAIL,
        Line::Error,         EndingText,                    Icon::None,    nullptr,            nullptr,
        Log::Kept,    OwnFile::DeletedAtRestart, Successor::None},
    {Outcome::ClientRunning,     EXIT_ERROR_CLIENT_RUNNING,
        Line::Error,         EndingText,                    Icon::Error,   c_failureCaption,   CodeMessage,
        Log::Kept,    OwnFile::DeletedAtRestart, Successor::None},
    {Outcome::FolderLocked,      EXIT_ERROR_DIRECTORY_LOCKED,
        Line::None,          nullptr,                       Icon::Error,   c_failureCaption,   CodeMessage,
        Log::Opened,  OwnFile::DeletedAtRestart, Successor::None},
    {Outcome::Removed,           EXIT_NO_ERROR,
        Line::None,          nullptr,                       Icon::Info,    c_removedCaption,   FixedText<c_removed>,
        Log::Deleted, OwnFile::DeletedAtRestart, Successor::None},
    {Outcome::PartiallyRemoved,  EXIT_ERROR_PARTIAL_UNINSTALL,
        Line::Error,         FixedText<c_partiallyRemoved>, Icon::Warning, c_partialCaption,   FixedText<c_filesMayRemain>,
        Log::Opened,  OwnFile::DeletedAtRestart, Successor::None},
};
// clang-format on

consteval bool AreInOrder()
{
    std::size_t index = 0;
    return std::ranges::all_of(c_rows, [&](const Row& row) { return row.outcome == static_cast<Outcome>(index++); });
}
static_assert(AreInOrder() && std::size(c_rows) == static_cast<std::size_t>(Outcome::PartiallyRemoved) + 1);

void WriteLine(const Row& row, const Ending& ending, Installer::Logger& logger)
{
    if (row.line == Line::None)
    {
        return;
    }
    const std::wstring text = row.lineText(row.code, ending);
    if (row.line == Line::Info)
    {
        logger.Info(text);
        return;
    }
    logger.Error(text, row.line == Line::CapturedError);
}

void ShowMessageBox(const Row& row, const Ending& ending, const Installer::StatusWindow& window)
{
    if (row.icon == Icon::None)
    {
        return;
    }
    const std::wstring caption = row.caption;
    const std::wstring text = row.messageBoxText(row.code, ending);
    auto show = &Installer::StatusWindow::ShowInfo;
    if (row.icon != Icon::Info)
    {
        show = row.icon == Icon::Error ? &Installer::StatusWindow::ShowError : &Installer::StatusWindow::ShowWarning;
    }
    (window.*show)(caption, text);
}

ExitCode CarryOut(const RunContext& run, const Ending& ending, const std::wstring& ownPath)
{
    const Row& row = c_rows[static_cast<std::size_t>(ending.outcome)];
    WriteLine(row, ending, run.logger);
    WithWindow(run, [&](const Installer::StatusWindow& window) { ShowMessageBox(row, ending, window); });
    if (row.log == Log::Opened)
    {
        run.logger.OpenLog();
    }
    if (row.successor == Successor::Copy)
    {
        run.logger.ClearPauseOnClose();
        CloseCrashReporting();
        return row.code;
    }
    finishProcess(run.logger.LogPath(), row.ownFile == OwnFile::DeletedAtRestart ? ownPath : std::wstring(),
                  row.log == Log::Deleted && run.logger.WritesFile());
    return row.code;
}

} // namespace

Ending RelocationAborted(const std::exception& exception)
{
    return Ending(Outcome::RelocationAborted, copyToTempFailedMessage(Installer::WidenExceptionText(exception.what())));
}

ExitCode EndRun(const RunContext& run, const Ending& ending, const std::wstring& ownPath)
try
{
    return CarryOut(run, ending, ownPath);
}
catch (const std::exception& exception)
{
    if (ending.outcome != Outcome::CopyFailed)
    {
        throw;
    }
    return CarryOut(run, RelocationAborted(exception), ownPath);
}

} // namespace Uninstaller
