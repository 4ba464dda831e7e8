#pragma once

#include "Uninstaller/Ending.h"
#include "Uninstaller/Preconditions.h"
#include "Uninstaller/RunContext.h"

#include <string>

namespace Uninstaller
{

// Asks for confirmation (except in silent runs), ends what runs of the product, and removes it from `installFolder`
// (unless that is protected) and from everywhere else, one step after another. A step that fails is logged and does not
// keep the later ones from being done. `ownPath` is the running executable. Returns how the run ends.
Ending UninstallProduct(const RunContext& run, const InstallFolder& installFolder, const std::wstring& ownPath);

} // namespace Uninstaller
