#pragma once

#include "Uninstaller/ExitCode.h"
#include "Uninstaller/RunContext.h"

#include <wil/resource.h>

#include <string>

// A running program keeps its file and with it the folder that it lies in. An uninstaller that was started from the
// installation folder therefore goes on as a copy of itself in the temporary folder.
namespace Uninstaller
{

// Where the copy lies, if there is one.
std::wstring GetCopyPath();

// Copies the program at `ownPath` to the temporary folder, hands the mutex over and starts the copy with the same
// argument (empty for none). Ends the run: returns EXIT_NO_ERROR when the copy was started, which is not waited for;
// EXIT_ERROR_COPY_TO_TEMP or EXIT_ERROR_RUN_FROM_TEMP when it could not be made or started.
ExitCode Relocate(const RunContext& run, const std::wstring& ownPath, const std::wstring& argument,
                  wil::unique_handle& mutex);

} // namespace Uninstaller
