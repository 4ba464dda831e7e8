#pragma once

#include "Uninstaller/ExitCode.h"
#include "Uninstaller/Preconditions.h"
#include "Uninstaller/RunContext.h"

#include <string>

namespace Uninstaller
{

// Asks for confirmation (except in silent runs), removes the product from `installFolder` (unless that is protected)
// and from everywhere else, one step after another, and ends the run (finishProcess with `ownPath`, the running
// executable). A step that fails is logged and does not keep the later ones from being done. Returns EXIT_NO_ERROR when
// all of it is gone or the user cancelled, EXIT_ERROR_PARTIAL_UNINSTALL when something is left, and
// EXIT_ERROR_PERMISSION_DIALOG_FAIL when the confirmation gave an answer that it does not have.
ExitCode UninstallProduct(const RunContext& run, const InstallFolder& installFolder, const std::wstring& ownPath);

} // namespace Uninstaller
