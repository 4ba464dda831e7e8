#pragma once

#include "Uninstaller/RunContext.h"

namespace Uninstaller
{

// Deletes "Vel Mora" and "Tessaline" in the local application data of the console user, who need not be this process's
// user. A folder that cannot be deleted is logged as a warning. Returns true even then; false after a standard
// exception, logged as a warning (for example, no user is signed in). Other exceptions propagate.
bool CleanUpForCurrentUser(const RunContext& run);

} // namespace Uninstaller
