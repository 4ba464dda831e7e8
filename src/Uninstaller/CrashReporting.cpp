#include "Uninstaller/CrashReporting.h"

#include "Installer/Common.h"
#include "Installer/CrashStack.h"
#include "Installer/Text.h"
#include "ProductSettings.h"

#include <sentry.h>

#include <string>

namespace Uninstaller
{

void StartCrashReporting()
{
    sentry_options_t* const options = sentry_options_new();
    sentry_options_set_dsn(options, VELMORA_CRASH_REPORT_DSN);
    sentry_options_set_database_path(options, Installer::WideToUtf8(GetCrashReportFolder()).c_str());
    sentry_options_set_release(options, "velmora-windows-uninstaller@" VELMORA_VERSION);
    sentry_options_set_debug(options, 0);
    sentry_init(options); // takes ownership of the options; a failure is ignored
    Installer::ReserveStackForCrashReport();
}

void CloseCrashReporting()
{
    sentry_close();
}

std::wstring GetCrashReportFolder()
{
    return Installer::GetUninstallerTempFolder() + L"Sentry";
}

} // namespace Uninstaller
