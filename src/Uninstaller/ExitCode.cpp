#include "Uninstaller/ExitCode.h"

#include "ProductSettings.h"

#include <fmt/format.h>
#include <fmt/xchar.h>

#include <string>
#include <string_view>

namespace Uninstaller
{

namespace
{

#define UNKNOWN_ERROR_MESSAGE(code)                                                                                    \
    L"Unknown Error "                                                                                                  \
    L"(" code L") - If you see this tell the developer <" VELMORA_SUPPORT_EMAIL L"> to perform better error checking!"
#define REGISTRATION_MESSAGE(what)                                                                                     \
    L"Velmora encountered an error while registering (" what L"). Please restart your system and try again."

constexpr wchar_t c_copyToTempMessage[] = L"Unable to copy the Velmora Uninstaller to temporary directory. Please "
                                          L"restart your system and try again. Reason: {}.";

// The message, with {} for values; null for an unknown code.
const wchar_t* FindMessage(int code)
{
    switch (code)
    {
    case EXIT_NO_ERROR:
        return L"No Error - You shouldn't ever see this.";
    case EXIT_ERROR_UNKNOWN:
        return UNKNOWN_ERROR_MESSAGE(L"0");
    case EXIT_ERROR_WINDOWS_VERSION:
        return L"You need at least Windows 10 20H1 - May 2020 Update (10.0.19041) to continue.";
    case EXIT_ERROR_MEDIA_FEATURE_PACK:
        return L"Velmora requires 'Media Feature Pack for Windows N' to be installed on your system before you can "
               L"continue. Velmora will attempt to open the Microsoft support article to guide you through this "
               L"process.";
    case EXIT_ERROR_NOT_ELEVATED:
        return L"Please run the Velmora installer/uninstaller as an administrator to continue.";
    case EXIT_ERROR_ALREADY_RUNNING:
        return L"Only one instance of the Velmora installer/uninstaller can run at a time. Please make sure no other "
               L"instances are open and try again. If this fails to fix the problem, restart your device.";
    case EXIT_ERROR_DOWNGRADE:
        return L"A downgrade attempt was made from {} to {}.  This is not supported. Please download the latest "
               L"version of Velmora from " VELMORA_DOWNLOAD_SITE L" or uninstall Velmora first before continuing.";
    case EXIT_ERROR_CLIENT_RUNNING:
        return L"Velmora is running and was unable to be closed, this is likely due to Velmora running on another "
               L"user account. Please ensure Velmora is not running, alternatively restart your device and try again.";
    case EXIT_ERROR_DISK_SPACE:
        return L"There's not enough space on your disk to install Velmora to '{}'. {} MB required, but only found {} "
               L"MB!";
    case EXIT_ERROR_DISK_SPACE_UNKNOWN:
        return L"Velmora was unable to determine how much disk space is required to install: {}. Please see the logs "
               L"for more information.";
    case EXIT_ERROR_CREATE_INSTALL_DIR:
        return L"Unable to create the installation directory for Velmora. Please restart your system and try again.";
    case EXIT_ERROR_COPY_TO_TEMP:
        return c_copyToTempMessage;
    case EXIT_ERROR_RUN_FROM_TEMP:
        return L"Unable to run the Velmora Uninstaller from the temporary directory. Please restart your system and "
               L"try again.";
    case EXIT_ERROR_PARTIAL_UNINSTALL:
        return L"The Velmora uninstall process partially failed. Not everything was uninstalled, manual cleanup may "
               L"be required.";
    case EXIT_ERROR_PERMISSION_DIALOG_FAIL:
        return L"Please restart your system and try again. See the logs for more information "
               L"(EXIT_ERROR_PERMISSION_DIALOG_FAIL).";
    case EXIT_ERROR_LEGACY_PACKAGE:
        return L"Something went wrong while trying to uninstall the old packaged version of Velmora. Please restart "
               L"your system and try again or manually uninstall it within the Windows Settings app.";
    case EXIT_ERROR_DIRECTORY_LOCKED:
        return L"One or more processes are locking the Velmora installation directory. Please restart your system and "
               L"try again. See the logs for more information.";
    case EXIT_ERROR_REMOVE_PREVIOUS:
        return L"Velmora was unable to remove a previous installation. Please restart your system and try again.";
    case EXIT_ERROR_UPDATE_ROLLBACK:
        return L"Velmora encountered a critical error during an update and was unable to revert to the previous "
               L"version. Please report this error to "
               L"<" VELMORA_SUPPORT_EMAIL L">, and then uninstall/re-install Velmora.";
    case EXIT_ERROR_INSTALL_FILES:
        return L"Velmora was unable to install the required files to the installation folder. Please restart your "
               L"system and try again.";
    case EXIT_ERROR_FILE_VERIFICATION:
        return L"Velmora was not installed correctly (file verification failed). Please try again.";
    case EXIT_ERROR_CANNOT_WRITE_UNINSTALL_ENTRY:
        return REGISTRATION_MESSAGE(L"cannot_write_uninstall_entry");
    case EXIT_ERROR_CANNOT_WRITE_STARTUP_ENTRY:
        return REGISTRATION_MESSAGE(L"cannot_write_startup_entry");
    case EXIT_ERROR_CANNOT_WRITE_FIREWALL_ENTRY:
        return REGISTRATION_MESSAGE(L"cannot_write_firewall_entry");
    case EXIT_ERROR_CANNOT_WRITE_PATH:
        return REGISTRATION_MESSAGE(L"cannot_write_path");
    case EXIT_ERROR_CANNOT_INSTALL_AUTH_SERVICE:
        return REGISTRATION_MESSAGE(L"cannot_install_auth_service");
    case EXIT_ERROR_CANNOT_WRITE_SHORTCUT:
        return REGISTRATION_MESSAGE(L"cannot_write_shortcut");
    case EXIT_ERROR_CANNOT_INSTALL_UPDATER_SERVICE:
        return REGISTRATION_MESSAGE(L"cannot_install_updater_service");
    default:
        return nullptr;
    }
}

} // namespace

std::wstring exitCodeMessage(int code)
{
    if (const wchar_t* const message = FindMessage(code))
    {
        return fmt::vformat(fmt::wstring_view(message), fmt::wformat_args());
    }
    return fmt::format(std::wstring_view(UNKNOWN_ERROR_MESSAGE(L"{}")), code);
}

std::wstring copyToTempFailedMessage(const std::wstring& reason)
{
    return fmt::format(std::wstring_view(c_copyToTempMessage), reason);
}

} // namespace Uninstaller
