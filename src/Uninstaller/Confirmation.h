#pragma once

#include "Uninstaller/RunContext.h"

#include <string>

namespace Uninstaller
{

// What the user wants.
enum class Answer
{
    Uninstall,            // everything but the settings
    UninstallAndSettings, // the settings too
    Cancel,
    Unknown, // the dialog was left with a button that it does not have
};

// Asks whether to uninstall, and whether the settings are to go too. A dialog that cannot be shown counts as a yes that
// keeps the settings. The run's window, if there is one, owns the dialog. Logs what went wrong, and that the user
// cancelled.
Answer AskForConfirmation(const RunContext& run);

} // namespace Uninstaller
