#pragma once

#include "Uninstaller/RunContext.h"

namespace Uninstaller
{

// Deletes the product's folders of the user who sits at the machine, who need not be the one that this process runs as:
// "Vel Mora" and "Tessaline" below that user's local application data. A folder that cannot be deleted is logged as a
// warning. Returns whether all of it was tried: false after a standard exception, which is logged as a warning too, for
// example when nobody sits there. Other exceptions pass.
bool CleanUpForCurrentUser(const RunContext& run);

} // namespace Uninstaller
