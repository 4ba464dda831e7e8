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
    CapturedError, // sent to the makers
};

enum class Box
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

// What becomes of the running executable, which cannot be deleted while it runs.
enum class OwnFile
{
    Stays,
    GoesAtRestart,
};

// Who goes on after this process.
enum class Next
{
    Nobody,
    Copy, // with the console, at once, and with the crash reports that wait
};

using Text = std::wstring (*)(ExitCode code, const Ending& ending);

std::wstring OfCode(ExitCode code, const Ending&)
{
    return exitCodeMessage(code);
}

std::wstring OfEnding(ExitCode, const Ending& ending)
{
    return ending.text;
}

template <const auto& Words>
std::wstring Fixed(ExitCode, const Ending&)
{
    return Words;
}

constexpr wchar_t c_cancelled[] = L"User canceled the uninstaller.";
constexpr wchar_t c_removed[] = L"Velmora has been successfully uninstalled.";
constexpr wchar_t c_partlyRemoved[] = L"Velmora did not fully uninstall. Please check the logs for more information.";
constexpr wchar_t c_filesMayRemain[] =
    L"Velmora has been successfully uninstalled, but some files may remain. See the logs for more information.";

constexpr wchar_t c_versionCaption[] = L"Version Not Supported";
constexpr wchar_t c_elevationCaption[] = L"Uninstaller Not Elevated";
constexpr wchar_t c_failureCaption[] = L"Velmora Uninstaller Failed";
constexpr wchar_t c_removedCaption[] = L"Velmora Uninstalled";
constexpr wchar_t c_partialCaption[] = L"Velmora Partially Uninstalled";

// What is done at the end, in the order of the columns.
struct Row
{
    Outcome outcome;
    ExitCode code;
    Line line;
    Text lineText;
    Box box; // only where there is a window
    const wchar_t* caption;
    Text boxText;
    Log log;
    OwnFile ownFile;
    Next next;
};

// In the order of Outcome.
// clang-format off
constexpr Row c_rows[] = {
    {Outcome::HelpShown,          EXIT_NO_ERROR,
        Line::None,          nullptr,                Box::None,    nullptr,            nullptr,
        Log::Deleted, OwnFile::Stays,         Next::Nobody},
    {Outcome::WindowsTooOld,      EXIT_ERROR_WINDOWS_VERSION,
        Line::Error,         OfCode,                 Box::Error,   c_versionCaption,   OfCode,
        Log::Kept,    OwnFile::Stays,         Next::Nobody},
    {Outcome::NotElevated,        EXIT_ERROR_NOT_ELEVATED,
        Line::Error,         OfCode,                 Box::Error,   c_elevationCaption, OfCode,
        Log::Kept,    OwnFile::Stays,         Next::Nobody},
    {Outcome::AlreadyRunning,     EXIT_ERROR_ALREADY_RUNNING,
        Line::Error,         OfCode,                 Box::Error,   c_failureCaption,   OfCode,
        Log::Kept,    OwnFile::Stays,         Next::Nobody},
    {Outcome::CopyFailed,         EXIT_ERROR_COPY_TO_TEMP,
        Line::CapturedError, OfEnding,               Box::Error,   c_failureCaption,   OfEnding,
        Log::Opened,  OwnFile::Stays,         Next::Nobody},
    {Outcome::RelocationBrokeOff, EXIT_ERROR_COPY_TO_TEMP,
        Line::CapturedError, OfEnding,               Box::Error,   c_failureCaption,   OfEnding,
        Log::Opened,  OwnFile::Stays,         Next::Nobody},
    {Outcome::CopyNotStarted,     EXIT_ERROR_RUN_FROM_TEMP,
        Line::CapturedError, OfEnding,               Box::Error,   c_failureCaption,   OfCode,
        Log::Opened,  OwnFile::GoesAtRestart, Next::Nobody},
    {Outcome::CopyStarted,        EXIT_NO_ERROR,
        Line::None,          nullptr,                Box::None,    nullptr,            nullptr,
        Log::Kept,    OwnFile::Stays,         Next::Copy},
    {Outcome::Cancelled,          EXIT_NO_ERROR,
        Line::Info,          Fixed<c_cancelled>,     Box::None,    nullptr,            nullptr,
        Log::Deleted, OwnFile::GoesAtRestart, Next::Nobody},
    {Outcome::UnknownAnswer,      EXIT_ERROR_PERMISSION_DIALOG_FAIL,
        Line::Error,         OfEnding,               Box::None,    nullptr,            nullptr,
        Log::Kept,    OwnFile::GoesAtRestart, Next::Nobody},
    {Outcome::ClientRunning,      EXIT_ERROR_CLIENT_RUNNING,
        Line::Error,         OfEnding,               Box::Error,   c_failureCaption,   OfCode,
        Log::Kept,    OwnFile::GoesAtRestart, Next::Nobody},
    {Outcome::FolderLocked,       EXIT_ERROR_DIRECTORY_LOCKED,
        Line::None,          nullptr,                Box::Error,   c_failureCaption,   OfCode,
        Log::Opened,  OwnFile::GoesAtRestart, Next::Nobody},
    {Outcome::Removed,            EXIT_NO_ERROR,
        Line::None,          nullptr,                Box::Info,    c_removedCaption,   Fixed<c_removed>,
        Log::Deleted, OwnFile::GoesAtRestart, Next::Nobody},
    {Outcome::PartlyRemoved,      EXIT_ERROR_PARTIAL_UNINSTALL,
        Line::Error,         Fixed<c_partlyRemoved>, Box::Warning, c_partialCaption,   Fixed<c_filesMayRemain>,
        Log::Opened,  OwnFile::GoesAtRestart, Next::Nobody},
};
// clang-format on

consteval bool AreInOrder()
{
    std::size_t index = 0;
    return std::ranges::all_of(c_rows, [&](const Row& row) { return row.outcome == static_cast<Outcome>(index++); });
}
static_assert(AreInOrder() && std::size(c_rows) == static_cast<std::size_t>(Outcome::PartlyRemoved) + 1);

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

void ShowBox(const Row& row, const Ending& ending, const Installer::StatusWindow& window)
{
    if (row.box == Box::None)
    {
        return;
    }
    const std::wstring caption = row.caption;
    const std::wstring text = row.boxText(row.code, ending);
    auto show = &Installer::StatusWindow::ShowInfo;
    if (row.box != Box::Info)
    {
        show = row.box == Box::Error ? &Installer::StatusWindow::ShowError : &Installer::StatusWindow::ShowWarning;
    }
    (window.*show)(caption, text);
}

ExitCode CarryOut(const RunContext& run, const Ending& ending, const std::wstring& ownPath)
{
    const Row& row = c_rows[static_cast<std::size_t>(ending.outcome)];
    WriteLine(row, ending, run.logger);
    if (run.window != nullptr)
    {
        ShowBox(row, ending, *run.window);
    }
    if (row.log == Log::Opened)
    {
        run.logger.OpenLog();
    }
    if (row.next == Next::Copy)
    {
        run.logger.ClearPauseOnClose();
        CloseCrashReporting();
        return row.code;
    }
    finishProcess(run.logger.LogPath(), row.ownFile == OwnFile::GoesAtRestart ? ownPath : std::wstring(),
                  row.log == Log::Deleted);
    return row.code;
}

} // namespace

Ending RelocationBrokeOff(const std::exception& exception)
{
    return Ending(Outcome::RelocationBrokeOff,
                  copyToTempFailedMessage(Installer::WidenExceptionText(exception.what())));
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
    return CarryOut(run, RelocationBrokeOff(exception), ownPath);
}

} // namespace Uninstaller
