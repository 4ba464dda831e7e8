#include "Uninstaller/Preconditions.h"

#include "Installer/Common.h"
#include "Installer/ProtectedFolder.h"
#include "Installer/Registry.h"
#include "Installer/Security.h"
#include "Uninstaller/EndOfProcess.h"

#include <windows.h>

#include <wil/result.h>
#include <wil/token_helpers.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace Uninstaller
{

namespace
{

constexpr DWORD c_leastMajorVersion = 10;
constexpr DWORD c_leastMinorVersion = 0;
constexpr DWORD c_leastBuild = 19041;
constexpr DWORD c_comparedParts[] = {VER_MAJORVERSION, VER_MINORVERSION, VER_BUILDNUMBER};

// The installer uses the same name.
constexpr wchar_t c_mutexName[] = L"Global\\Velmora_Installer_Mutex";

constexpr wchar_t c_defaultFolderName[] = L"Velmora\\";

ExitCode Refuse(const RunContext& run, ExitCode code, const wchar_t* caption = c_failureCaption)
{
    run.logger.Error(exitCodeMessage(code), false);
    ShowError(run, exitCodeMessage(code), caption);
    finishProcess(run.logger.LogPath(), {}, false);
    return code;
}

// Deployment tools run as Local System, whose token counts as elevated or not depending on who made it.
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

InstallFolder Examined(const std::wstring& path)
{
    return {.path = path, .isProtected = Installer::IsProtectedFolder(path)};
}

} // namespace

std::optional<ExitCode> CheckWindowsVersion(const RunContext& run)
{
    run.logger.Info(L"Checking to sure we are running on Windows 10.0.19041 or higher...");
    OSVERSIONINFOEXW least{};
    least.dwOSVersionInfoSize = sizeof(least);
    least.dwMajorVersion = c_leastMajorVersion;
    least.dwMinorVersion = c_leastMinorVersion;
    least.dwBuildNumber = c_leastBuild;
    DWORDLONG condition = 0;
    for (const DWORD part : c_comparedParts)
    {
        condition = VerSetConditionMask(condition, part, VER_GREATER_EQUAL);
    }
    if (!VerifyVersionInfoW(&least, c_comparedParts[0] | c_comparedParts[1] | c_comparedParts[2], condition))
    {
        return Refuse(run, EXIT_ERROR_WINDOWS_VERSION, L"Version Not Supported");
    }
    return std::nullopt;
}

std::optional<ExitCode> CheckElevation(const RunContext& run)
{
    run.logger.Info(L"Checking to see if elevated...");
    const bool isLocalSystem = IsLocalSystem();
    const bool isElevated = Installer::IsTokenElevated();
    if (!isLocalSystem && !isElevated)
    {
        return Refuse(run, EXIT_ERROR_NOT_ELEVATED, L"Uninstaller Not Elevated");
    }
    return std::nullopt;
}

std::optional<ExitCode> CheckSingleInstance(const RunContext& run, wil::unique_handle& mutex)
{
    mutex.reset(CreateMutexExW(nullptr, c_mutexName, CREATE_MUTEX_INITIAL_OWNER, MUTEX_ALL_ACCESS));
    if (mutex && GetLastError() != ERROR_ALREADY_EXISTS)
    {
        return std::nullopt;
    }
    const ExitCode code = Refuse(run, EXIT_ERROR_ALREADY_RUNNING);
    if (mutex)
    {
        ReleaseSingleInstance(mutex);
    }
    return code;
}

void ReleaseSingleInstance(wil::unique_handle& mutex)
{
    THROW_IF_WIN32_BOOL_FALSE(CloseHandle(mutex.release()));
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
        return Examined(Installer::GetProgramFilesFolder() + c_defaultFolderName);
    }
    return Examined(record.location);
}

} // namespace Uninstaller
