#pragma once

#include <string>

// The process exit codes, shared by the product's installer and uninstaller.
namespace Uninstaller
{

enum ExitCode : int
{
    EXIT_NO_ERROR = 0,                      // done, cancelled, help shown, or the relocated copy started
    EXIT_ERROR_UNKNOWN = 1,                 // installer only
    EXIT_ERROR_WINDOWS_VERSION = 2,         // Windows is too old
    EXIT_ERROR_MEDIA_FEATURE_PACK = 8,      // installer only
    EXIT_ERROR_NOT_ELEVATED = 9,            // not started as an administrator
    EXIT_ERROR_ALREADY_RUNNING = 10,        // another installer or uninstaller is running
    EXIT_ERROR_DOWNGRADE = 11,              // installer only
    EXIT_ERROR_CLIENT_RUNNING = 12,         // the client or the services could not be stopped; nothing removed
    EXIT_ERROR_DISK_SPACE = 13,             // installer only
    EXIT_ERROR_DISK_SPACE_UNKNOWN = 14,     // installer only
    EXIT_ERROR_CREATE_INSTALL_DIR = 15,     // installer only
    EXIT_ERROR_COPY_TO_TEMP = 16,           // the uninstaller could not copy itself to the temporary folder
    EXIT_ERROR_RUN_FROM_TEMP = 17,          // that copy could not be started
    EXIT_ERROR_PARTIAL_UNINSTALL = 18,      // something could not be removed; see the log
    EXIT_ERROR_PERMISSION_DIALOG_FAIL = 19, // the confirmation returned an unknown button
    EXIT_ERROR_LEGACY_PACKAGE = 21,         // installer only
    EXIT_ERROR_DIRECTORY_LOCKED = 22,       // processes run from the installation folder; nothing removed
    EXIT_ERROR_REMOVE_PREVIOUS = 23,        // installer only, like all that follow
    EXIT_ERROR_UPDATE_ROLLBACK = 24,
    EXIT_ERROR_INSTALL_FILES = 25,
    EXIT_ERROR_FILE_VERIFICATION = 26,
    EXIT_ERROR_CANNOT_WRITE_UNINSTALL_ENTRY = 50,
    EXIT_ERROR_CANNOT_WRITE_STARTUP_ENTRY = 52,
    EXIT_ERROR_CANNOT_WRITE_FIREWALL_ENTRY = 53,
    EXIT_ERROR_CANNOT_WRITE_PATH = 54,
    EXIT_ERROR_CANNOT_INSTALL_AUTH_SERVICE = 55,
    EXIT_ERROR_CANNOT_WRITE_SHORTCUT = 56,
    EXIT_ERROR_CANNOT_INSTALL_UPDATER_SERVICE = 57,
};

// The message of an exit code, for the log and the user. An unknown code gives the message for unknown errors with the
// code in it. Throws fmt::format_error for codes whose messages have placeholders: 11, 13, 14 and 16.
std::wstring exitCodeMessage(int code);

// The message of EXIT_ERROR_COPY_TO_TEMP with its reason filled in.
std::wstring copyToTempFailedMessage(const std::wstring& reason);

} // namespace Uninstaller
