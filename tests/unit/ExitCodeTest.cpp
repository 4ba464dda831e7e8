#include "Uninstaller/ExitCode.h"

#include "Installer/Text.h"
#include "ProductSettings.h"

#include <windows.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace
{

using namespace Uninstaller;

#define EMAIL L"" VELMORA_SUPPORT_EMAIL

struct Row
{
    int code;
    ExitCode name;
    const wchar_t* message;
};

// clang-format off
const Row c_rows[] = {
    {0, EXIT_NO_ERROR, L"No Error - You shouldn't ever see this."},
    {1, EXIT_ERROR_UNKNOWN, L"Unknown Error (0) - If you see this tell the developer <" EMAIL L"> to perform better error checking!"},
    {2, EXIT_ERROR_WINDOWS_VERSION, L"You need at least Windows 10 20H1 - May 2020 Update (10.0.19041) to continue."},
    {8, EXIT_ERROR_MEDIA_FEATURE_PACK, L"Velmora requires 'Media Feature Pack for Windows N' to be installed on your system before you can continue. Velmora will attempt to open the Microsoft support article to guide you through this process."},
    {9, EXIT_ERROR_NOT_ELEVATED, L"Please run the Velmora installer/uninstaller as an administrator to continue."},
    {10, EXIT_ERROR_ALREADY_RUNNING, L"Only one instance of the Velmora installer/uninstaller can run at a time. Please make sure no other instances are open and try again. If this fails to fix the problem, restart your device."},
    {12, EXIT_ERROR_CLIENT_RUNNING, L"Velmora is running and was unable to be closed, this is likely due to Velmora running on another user account. Please ensure Velmora is not running, alternatively restart your device and try again."},
    {15, EXIT_ERROR_CREATE_INSTALL_DIR, L"Unable to create the installation directory for Velmora. Please restart your system and try again."},
    {17, EXIT_ERROR_RUN_FROM_TEMP, L"Unable to run the Velmora Uninstaller from the temporary directory. Please restart your system and try again."},
    {18, EXIT_ERROR_PARTIAL_UNINSTALL, L"The Velmora uninstall process partially failed. Not everything was uninstalled, manual cleanup may be required."},
    {19, EXIT_ERROR_PERMISSION_DIALOG_FAIL, L"Please restart your system and try again. See the logs for more information (EXIT_ERROR_PERMISSION_DIALOG_FAIL)."},
    {21, EXIT_ERROR_LEGACY_PACKAGE, L"Something went wrong while trying to uninstall the old packaged version of Velmora. Please restart your system and try again or manually uninstall it within the Windows Settings app."},
    {22, EXIT_ERROR_DIRECTORY_LOCKED, L"One or more processes are locking the Velmora installation directory. Please restart your system and try again. See the logs for more information."},
    {23, EXIT_ERROR_REMOVE_PREVIOUS, L"Velmora was unable to remove a previous installation. Please restart your system and try again."},
    {24, EXIT_ERROR_UPDATE_ROLLBACK, L"Velmora encountered a critical error during an update and was unable to revert to the previous version. Please report this error to <" EMAIL L">, and then uninstall/re-install Velmora."},
    {25, EXIT_ERROR_INSTALL_FILES, L"Velmora was unable to install the required files to the installation folder. Please restart your system and try again."},
    {26, EXIT_ERROR_FILE_VERIFICATION, L"Velmora was not installed correctly (file verification failed). Please try again."},
    {50, EXIT_ERROR_CANNOT_WRITE_UNINSTALL_ENTRY, L"Velmora encountered an error while registering (cannot_write_uninstall_entry). Please restart your system and try again."},
    {52, EXIT_ERROR_CANNOT_WRITE_STARTUP_ENTRY, L"Velmora encountered an error while registering (cannot_write_startup_entry). Please restart your system and try again."},
    {53, EXIT_ERROR_CANNOT_WRITE_FIREWALL_ENTRY, L"Velmora encountered an error while registering (cannot_write_firewall_entry). Please restart your system and try again."},
    {54, EXIT_ERROR_CANNOT_WRITE_PATH, L"Velmora encountered an error while registering (cannot_write_path). Please restart your system and try again."},
    {55, EXIT_ERROR_CANNOT_INSTALL_AUTH_SERVICE, L"Velmora encountered an error while registering (cannot_install_auth_service). Please restart your system and try again."},
    {56, EXIT_ERROR_CANNOT_WRITE_SHORTCUT, L"Velmora encountered an error while registering (cannot_write_shortcut). Please restart your system and try again."},
    {57, EXIT_ERROR_CANNOT_INSTALL_UPDATER_SERVICE, L"Velmora encountered an error while registering (cannot_install_updater_service). Please restart your system and try again."},
};
// clang-format on

// The codes whose messages have places for values.
constexpr std::array c_patterns{11, 13, 14, 16};

std::wstring UnknownMessage(const std::wstring& code)
{
    return L"Unknown Error (" + code + L") - If you see this tell the developer <" + EMAIL +
           L"> to perform better error checking!";
}

TEST(ExitCodeTest, Every_code_has_its_name_and_its_message)
{
    for (const Row& row : c_rows)
    {
        EXPECT_EQ(row.code, row.name);
        EXPECT_EQ(exitCodeMessage(row.code), row.message);
    }
}

TEST(ExitCodeTest, Messages_with_places_for_values_cannot_be_had_without_them)
{
    EXPECT_EQ((std::array<int, 4>{EXIT_ERROR_DOWNGRADE, EXIT_ERROR_DISK_SPACE, EXIT_ERROR_DISK_SPACE_UNKNOWN,
                                  EXIT_ERROR_COPY_TO_TEMP}),
              c_patterns);
    for (const int code : c_patterns)
    {
        EXPECT_THROW(exitCodeMessage(code), fmt::format_error) << code;
    }
}

// Where this program keeps a text among its constants; null when it does not. The test's own texts are narrow ones.
wchar_t* FindConstant(const std::wstring& text)
{
    auto* const base = reinterpret_cast<char*>(GetModuleHandleW(nullptr));
    const auto* const headers =
        reinterpret_cast<IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const std::string_view image(base, headers->OptionalHeader.SizeOfImage);
    // With the null at its end.
    const auto found = image.find({reinterpret_cast<const char*>(text.c_str()), (text.size() + 1) * sizeof(wchar_t)});
    return found == std::string_view::npos ? nullptr : reinterpret_cast<wchar_t*>(base + found);
}

// What a code's message is when the program's constant of that text has lost the braces of its places, so that it needs
// no values; and what it is to be then.
std::pair<std::wstring, std::wstring> MessageWithoutPlaces(int code, const std::string& text)
{
    const std::wstring pattern = Installer::Utf8ToWide(text);
    wchar_t* const constant = FindConstant(pattern);
    if (constant == nullptr)
    {
        return {L"no such text", pattern};
    }
    std::wstring expected = pattern;
    std::ranges::replace(expected, L'{', L'<');
    std::ranges::replace(expected, L'}', L'>');
    DWORD protection = 0;
    VirtualProtect(constant, pattern.size() * sizeof(wchar_t), PAGE_READWRITE, &protection);
    expected.copy(constant, expected.size());
    const std::wstring message = exitCodeMessage(code);
    pattern.copy(constant, pattern.size());
    VirtualProtect(constant, pattern.size() * sizeof(wchar_t), protection, &protection);
    return {message, expected};
}

TEST(ExitCodeTest, Messages_with_places_for_values_are_known_to_the_letter)
{
    for (const auto& [code, text] : std::initializer_list<std::pair<int, std::string>>{
             {11, "A downgrade attempt was made from {} to {}.  This is not supported. Please download the latest "
                  "version of Velmora from " VELMORA_DOWNLOAD_SITE " or uninstall Velmora first before continuing."},
             {13, "There's not enough space on your disk to install Velmora to '{}'. {} MB required, but only found {} "
                  "MB!"},
             {14, "Velmora was unable to determine how much disk space is required to install: {}. Please see the logs "
                  "for more information."},
             {16, "Unable to copy the Velmora Uninstaller to temporary directory. Please restart your system and try "
                  "again. Reason: {}."}})
    {
        const auto [message, expected] = MessageWithoutPlaces(code, text);
        EXPECT_EQ(message, expected) << code;
    }
}

TEST(ExitCodeTest, All_other_codes_are_unknown_and_stand_in_their_message_in_signed_decimal)
{
    std::set<int> known(c_patterns.begin(), c_patterns.end());
    for (const Row& row : c_rows)
    {
        known.insert(row.code);
    }
    for (int code = -10; code < 300; ++code)
    {
        if (!known.contains(code))
        {
            EXPECT_EQ(exitCodeMessage(code), UnknownMessage(std::to_wstring(code)));
        }
    }
    EXPECT_EQ(exitCodeMessage(static_cast<int>(0x80070005)), UnknownMessage(L"-2147024891"));
}

TEST(ExitCodeTest, The_failed_copy_has_a_reason)
{
    EXPECT_EQ(copyToTempFailedMessage(L"-2147024891"),
              L"Unable to copy the Velmora Uninstaller to temporary directory. Please restart your system and try "
              L"again. Reason: -2147024891.");
    EXPECT_TRUE(copyToTempFailedMessage(L"{}{0}").ends_with(L"Reason: {}{0}."));
}

} // namespace
