#pragma once

#include <string>

namespace Uninstaller
{

// What every run does last: schedules `fileToDeleteAtReboot` for deletion at the next restart (unless it is empty),
// deletes the log when `deleteLog` is set, ends crash reporting and removes its folder. Failures are ignored.
void finishProcess(const std::wstring& logPath, const std::wstring& fileToDeleteAtReboot, bool deleteLog);

} // namespace Uninstaller
