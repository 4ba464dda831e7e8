#pragma once

#include "Uninstaller/ExitCode.h"
#include "Uninstaller/RunContext.h"

#include <exception>
#include <string>
#include <utility>

// How a run ends. What finds a reason to end it returns that as an Ending; only EndRun carries one out.
namespace Uninstaller
{

enum class Outcome
{
    HelpShown,
    WindowsTooOld,
    NotElevated,
    AlreadyRunning,
    CopyFailed,         // the program could not be copied
    RelocationBrokeOff, // by an exception
    CopyNotStarted,
    CopyStarted,
    Cancelled,
    UnknownAnswer, // to the confirmation
    ClientRunning, // or its services
    FolderLocked,
    Removed,
    PartlyRemoved,
};

struct Ending
{
    explicit Ending(Outcome how, std::wstring what = {}) : outcome(how), text(std::move(what)) {}

    Outcome outcome;
    std::wstring text; // what went wrong, where the table in Ending.cpp cannot say it
};

// The relocation was broken off by that exception.
Ending RelocationBrokeOff(const std::exception& exception);

// Writes the ending's line, tells the user where there is a window, opens the log, and does what every run does last
// (finishProcess): what of it, the table in Ending.cpp says. `ownPath` is the running executable. Returns the exit
// code. Throws what Logger::OpenLog throws, except for CopyFailed: that run ends once more, with what was thrown as the
// reason.
ExitCode EndRun(const RunContext& run, const Ending& ending, const std::wstring& ownPath);

} // namespace Uninstaller
