#include "Uninstaller/EndOfProcess.h"

#include "Installer/Common.h"
#include "Installer/UninstallerTempFolder.h"
#include "Uninstaller/CrashReporting.h"

#include <windows.h>

#include <string>

namespace Uninstaller
{

void finishProcess(const std::wstring& logPath, const std::wstring& fileToDeleteAtReboot, bool deleteLog)
{
    if (!fileToDeleteAtReboot.empty())
    {
        MoveFileExW(fileToDeleteAtReboot.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
    }
    if (deleteLog)
    {
        DeleteFileW(logPath.c_str());
    }
    CloseCrashReporting();
    const Installer::UninstallerTempFolder folder = Installer::OpenUninstallerTempFolder();
    if (folder.IsPrivate())
    {
        Installer::RemoveFolder(GetCrashReportFolder(folder));
    }
}

} // namespace Uninstaller
