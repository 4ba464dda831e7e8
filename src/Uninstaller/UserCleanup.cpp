#include "Uninstaller/UserCleanup.h"

#include "Installer/Common.h"
#include "Installer/Security.h"

#include <windows.h>

#include <shlobj.h>

#include <wil/resource.h>
#include <wil/result.h>

#include <exception>
#include <string>

namespace Uninstaller
{

namespace
{

using namespace Installer;

constexpr int c_progressBetween = 80; // of the phase, after the first folder

std::wstring FindLocalAppData()
{
    const wil::unique_handle token = GetActiveConsoleExplorerToken();
    wil::unique_cotaskmem_string folder;
    THROW_IF_FAILED(SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, token.get(), &folder));
    return folder.get();
}

void DeleteUserFolder(const std::wstring& path, const wchar_t* failureText, Logger& logger)
{
    logger.Info(L"Attempting to delete '" + path + L"'...");
    const HRESULT result = DeleteFolderWithRetry(path);
    if (result != S_OK)
    {
        logger.Warning(failureText + (L" Reason: " + GetSystemMessage(result)), false);
    }
}

} // namespace

bool CleanUpForCurrentUser(const RunContext& run)
try
{
    const std::wstring localAppData = FindLocalAppData();
    DeleteUserFolder(localAppData + L"\\Vel Mora",
                     L"Unable to delete Velmora folder. Other applications may accessing this folder.", run.logger);
    WithWindow(run, [](StatusWindow& window) { window.SetProgress(c_progressBetween); });
    DeleteUserFolder(localAppData + L"\\Tessaline",
                     L"Unable to delete Tessaline folder. Pellmark Studio may be running.", run.logger);
    return true;
}
catch (const std::exception& exception)
{
    run.logger.Warning(L"Something went wrong while trying to clean up user files: ", exception.what(), false);
    return false;
}

} // namespace Uninstaller
