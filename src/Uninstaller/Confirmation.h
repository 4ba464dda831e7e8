#pragma once

#include "Uninstaller/Ending.h"
#include "Uninstaller/RunContext.h"

#include <variant>

namespace Uninstaller
{

// What happens to the user's settings.
enum class UserSettings
{
    Keep,
    Remove,
};

// Asks whether to uninstall, and whether to remove the settings too. Returns the choice for the settings, or the run's
// ending when the user cancels or the dialog returns an unknown button. If the dialog fails, logs a warning and returns
// UserSettings::Keep. The run's window, if any, owns the dialog.
std::variant<UserSettings, Ending> AskForConfirmation(const RunContext& run);

} // namespace Uninstaller
