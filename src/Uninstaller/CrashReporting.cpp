#include "Uninstaller/CrashReporting.h"

#include "Installer/CrashStack.h"
#include "Installer/Text.h"
#include "Installer/UninstallerTempFolder.h"
#include "ProductSettings.h"

#include <sentry.h>

#include <string>

namespace Uninstaller
{

void StartCrashReporting()
{
    const Installer::UninstallerTempFolder folder = Installer::OpenUninstallerTempFolder();
    if (!folder.IsPrivate())
    {
        return;
    }
    sentry_options_t* const options = sentry_options_new();
    sentry_options_set_dsn(options, VELMORA_CRASH_REPORT_DSN);
    sentry_options_set_database_path(options, Installer::WideToUtf8(GetCrashReportFolder(folder)).c_str());
    sentry_options_set_release(options, "velmora-windows-uninstaller@" VELMORA_VERSION);
    sentry_options_set_debug(options, 0);
    sentry_init(options); // takes ownership of the options; a failure is ignored
    Installer::ReserveStackForCrashReport();
}

void CloseCrashReporting()
{
    sentry_close();
}

std::wstring GetCrashReportFolder(const Installer::UninstallerTempFolder& folder)
{
    return folder.path + L"Sentry";
}

} // namespace Uninstaller
