#pragma once

#include "Uninstaller/Ending.h"
#include "Uninstaller/Preconditions.h"
#include "Uninstaller/RunContext.h"

#include <string>

namespace Uninstaller
{

// Asks for confirmation (except in silent runs), stops the product's processes and services, and runs the removal steps
// in order. A failed step is logged and does not stop the later ones. A protected `installFolder` is not deleted.
// `ownPath` is the running executable. Returns the run's ending.
Ending UninstallProduct(const RunContext& run, const InstallFolder& installFolder, const std::wstring& ownPath);

} // namespace Uninstaller
