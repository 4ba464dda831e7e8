#include "Uninstaller/Relocation.h"

#include "Installer/Common.h"
#include "Installer/Path.h"
#include "Installer/Retry.h"
#include "Uninstaller/SingleInstance.h"

#include <windows.h>

#include <exception>
#include <optional>
#include <string>
#include <utility>

namespace Uninstaller
{

namespace
{

constexpr wchar_t c_copyName[] = L"Velmora.Uninstaller.exe";

// Overwrites an earlier copy. A failure without an error code counts as a success: HRESULT_FROM_WIN32(0) is S_OK.
HRESULT CopyProgram(const std::wstring& from, const std::wstring& to)
{
    return Installer::Retry(Installer::c_tenTimesPausingBetween, [&]() -> HRESULT {
        return CopyFileExW(from.c_str(), to.c_str(), nullptr, nullptr, nullptr, COPY_FILE_ALLOW_DECRYPTED_DESTINATION)
                   ? S_OK
                   : HRESULT_FROM_WIN32(GetLastError());
    });
}

// Returns the run's ending when the program cannot be started. The reason may be 0.
std::optional<Ending> Start(const std::wstring& program, const std::wstring& argument, Installer::Logger& logger)
{
    const std::wstring quoted = L'"' + program + L'"';
    const std::wstring process = quoted + L" process (with args of \"" + argument + L"\")";
    logger.Info(L"Starting " + process);
    std::wstring commandLine = quoted + L' ' + argument;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION information{};
    if (!CreateProcessW(program.c_str(), argument.empty() ? nullptr : commandLine.data(), nullptr, nullptr, FALSE, 0,
                        nullptr, nullptr, &startup, &information))
    {
        const HRESULT reason = HRESULT_FROM_WIN32(GetLastError());
        return Ending(Outcome::CopyNotStarted,
                      L"Uninstaller was unable to start " + process + L"! Reason: " + std::to_wstring(reason));
    }
    const wil::unique_handle processHandle(information.hProcess);
    const wil::unique_handle threadHandle(information.hThread);
    return std::nullopt;
}

} // namespace

std::wstring GetCopyPath()
{
    return Installer::GetUninstallerTempFolderPath() + c_copyName;
}

Ending Relocate(Installer::Logger& logger, const std::wstring& ownPath, const std::wstring& argument,
                wil::unique_handle& mutex)
{
    logger.Info(L"Uninstaller is running inside installation directory. Copying to temporary location so we can "
                L"continue...");
    try
    {
        const std::wstring copy = Installer::GetUninstallerTempFolder() + c_copyName;
        const HRESULT copied = CopyProgram(Installer::ToExtendedPath(ownPath), copy);
        if (copied != S_OK)
        {
            return Ending(Outcome::CopyFailed, copyToTempFailedMessage(std::to_wstring(copied)));
        }
        ReleaseSingleInstance(mutex);
        if (auto failure = Start(copy, argument, logger))
        {
            return *std::move(failure);
        }
    }
    catch (const std::exception& exception)
    {
        return RelocationAborted(exception);
    }
    logger.Info(L"This process will now exit (without waiting for user feedback)");
    logger.Info(L"----------");
    return Ending(Outcome::CopyStarted);
}

} // namespace Uninstaller
