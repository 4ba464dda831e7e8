#pragma once

#include "Uninstaller/ExitCode.h"
#include "Uninstaller/RunContext.h"

#include <exception>
#include <string>
#include <utility>

// How a run ends. A function that finds a reason to end the run returns an Ending; only EndRun carries it out.
namespace Uninstaller
{

enum class Outcome
{
    HelpShown,
    WindowsTooOld,
    NotElevated,
    AlreadyRunning,
    CopyFailed,        // CopyFileExW failed
    RelocationAborted, // an exception was thrown
    CopyNotStarted,
    CopyStarted,
    Cancelled,
    UnexpectedButton, // of the confirmation dialog
    ClientRunning,    // or its services
    FolderLocked,
    Removed,
    PartiallyRemoved,
};

struct Ending
{
    explicit Ending(Outcome how, std::wstring what = {}) : outcome(how), text(std::move(what)) {}

    Outcome outcome;
    std::wstring text; // the details that the table in Ending.cpp does not have
};

// The ending of a relocation that threw.
Ending RelocationAborted(const std::exception& exception);

// Carries out an ending by its row in Ending.cpp: logs it, shows a message box (runs with a window only), opens the
// log, and calls finishProcess. `ownPath` is the running executable. Returns the exit code. Throws what Logger::OpenLog
// throws, except for CopyFailed: then it carries out RelocationAborted with that exception.
ExitCode EndRun(const RunContext& run, const Ending& ending, const std::wstring& ownPath);

} // namespace Uninstaller
