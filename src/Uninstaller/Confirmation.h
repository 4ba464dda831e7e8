#pragma once

#include "Uninstaller/Ending.h"
#include "Uninstaller/RunContext.h"

#include <variant>

namespace Uninstaller
{

// What an uninstall does with the user's settings.
enum class UserSettings
{
    Stay,
    Go,
};

// Asks whether to uninstall, and whether the settings are to go too. Returns what the user wants, or how the run ends:
// cancelled, or left with a button that the dialog does not have. A dialog that cannot be shown is logged and counts as
// a yes that keeps the settings. The run's window, if there is one, owns the dialog.
std::variant<UserSettings, Ending> AskForConfirmation(const RunContext& run);

} // namespace Uninstaller
