#pragma once

#include <string>

namespace Uninstaller
{

// The last step of a run: schedules `fileToDeleteAtReboot` (unless empty) for deletion at the next restart, deletes the
// log if `deleteLog` is set, shuts down crash reporting and deletes its folder. Failures are ignored.
void finishProcess(const std::wstring& logPath, const std::wstring& fileToDeleteAtReboot, bool deleteLog);

} // namespace Uninstaller
