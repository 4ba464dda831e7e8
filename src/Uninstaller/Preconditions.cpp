#include "Uninstaller/Preconditions.h"

#include "Installer/Common.h"
#include "Installer/ProtectedFolder.h"
#include "Installer/Registry.h"
#include "Installer/Security.h"

#include <windows.h>

#include <wil/token_helpers.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace Uninstaller
{

namespace
{

constexpr DWORD c_minimumMajorVersion = 10;
constexpr DWORD c_minimumMinorVersion = 0;
constexpr DWORD c_minimumBuild = 19041;
constexpr DWORD c_comparedFields[] = {VER_MAJORVERSION, VER_MINORVERSION, VER_BUILDNUMBER};

constexpr wchar_t c_defaultFolderName[] = L"Velmora\\";

// Deployment tools run as Local System. Its tokens are not always marked as elevated.
bool IsLocalSystem()
{
    const auto user = wil::get_token_information<TOKEN_USER>(GetCurrentProcessToken());
    return IsWellKnownSid(user->User.Sid, WinLocalSystemSid) != FALSE;
}

std::wstring FormatVersion(const std::array<std::uint16_t, 4>& version)
{
    std::wstring text;
    for (const auto number : version)
    {
        text += (text.empty() ? L"" : L".") + std::to_wstring(number);
    }
    return text;
}

InstallFolder MakeInstallFolder(const std::wstring& path)
{
    return {.path = path, .isProtected = Installer::IsProtectedFolder(path)};
}

} // namespace

std::optional<Ending> CheckWindowsVersion(Installer::Logger& logger)
{
    logger.Info(L"Checking to sure we are running on Windows 10.0.19041 or higher...");
    OSVERSIONINFOEXW minimum{};
    minimum.dwOSVersionInfoSize = sizeof(minimum);
    minimum.dwMajorVersion = c_minimumMajorVersion;
    minimum.dwMinorVersion = c_minimumMinorVersion;
    minimum.dwBuildNumber = c_minimumBuild;
    DWORDLONG condition = 0;
    for (const DWORD field : c_comparedFields)
    {
        condition = VerSetConditionMask(condition, field, VER_GREATER_EQUAL);
    }
    if (!VerifyVersionInfoW(&minimum, c_comparedFields[0] | c_comparedFields[1] | c_comparedFields[2], condition))
    {
        return Ending(Outcome::WindowsTooOld);
    }
    return std::nullopt;
}

std::optional<Ending> CheckElevation(Installer::Logger& logger)
{
    logger.Info(L"Checking to see if elevated...");
    const bool isLocalSystem = IsLocalSystem();
    const bool isElevated = Installer::IsTokenElevated();
    if (!isLocalSystem && !isElevated)
    {
        return Ending(Outcome::NotElevated);
    }
    return std::nullopt;
}

InstallFolder FindInstallFolder(Installer::Logger& logger)
{
    const Installer::InstallRecord record = Installer::ReadInstallRecord();
    if (record.found)
    {
        logger.Info(L"Found Velmora install entry at '" + record.location + L"', version " +
                    FormatVersion(record.version) + L".");
    }
    else
    {
        logger.Info(L"Did not find previous Velmora install entry. Will continue with assuming default install "
                    L"location.");
    }
    if (record.location.empty())
    {
        logger.Info(L"No previous Velmora install directory found, using default.");
        return MakeInstallFolder(Installer::GetProgramFilesFolder() + c_defaultFolderName);
    }
    return MakeInstallFolder(record.location);
}

} // namespace Uninstaller
