#include "Uninstaller/Relocation.h"

#include "Installer/Common.h"
#include "Installer/Path.h"
#include "Installer/Retry.h"
#include "Installer/Text.h"
#include "Uninstaller/CrashReporting.h"
#include "Uninstaller/EndOfProcess.h"
#include "Uninstaller/Preconditions.h"

#include <windows.h>

#include <exception>
#include <optional>
#include <string>

namespace Uninstaller
{

namespace
{

constexpr wchar_t c_copyName[] = L"Velmora.Uninstaller.exe";

// Overwrites what an earlier run left there. A failure that the system has no code for counts as a success.
HRESULT CopyProgram(const std::wstring& from, const std::wstring& to)
{
    return Installer::Retry(Installer::c_tenTimesPausingBetween, [&]() -> HRESULT {
        return CopyFileExW(from.c_str(), to.c_str(), nullptr, nullptr, nullptr, COPY_FILE_ALLOW_DECRYPTED_DESTINATION)
                   ? S_OK
                   : HRESULT_FROM_WIN32(GetLastError());
    });
}

// Returns why the program could not be started, or nothing when it was.
std::optional<HRESULT> Start(const std::wstring& program, const std::wstring& argument)
{
    std::wstring commandLine = L'"' + program + L"\" " + argument;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION information{};
    if (!CreateProcessW(program.c_str(), argument.empty() ? nullptr : commandLine.data(), nullptr, nullptr, FALSE, 0,
                        nullptr, nullptr, &startup, &information))
    {
        return HRESULT_FROM_WIN32(GetLastError());
    }
    const wil::unique_handle process(information.hProcess);
    const wil::unique_handle thread(information.hThread);
    return std::nullopt;
}

ExitCode EndWithoutCopy(const RunContext& run, const std::wstring& reason)
{
    const std::wstring message = copyToTempFailedMessage(reason);
    run.logger.Error(message, true);
    ShowError(run, message);
    run.logger.OpenLog();
    finishProcess(run.logger.LogPath(), {}, false);
    return EXIT_ERROR_COPY_TO_TEMP;
}

ExitCode EndWithCopyNotStarted(const RunContext& run, const std::wstring& start, HRESULT reason,
                               const std::wstring& ownPath)
{
    run.logger.Error(L"Uninstaller was unable to start " + start + L"! Reason: " + std::to_wstring(reason), true);
    ShowError(run, exitCodeMessage(EXIT_ERROR_RUN_FROM_TEMP));
    run.logger.OpenLog();
    finishProcess(run.logger.LogPath(), ownPath, false);
    return EXIT_ERROR_RUN_FROM_TEMP;
}

ExitCode EndWithCopyStarted(const RunContext& run)
{
    run.logger.Info(L"This process will now exit (without waiting for user feedback)");
    run.logger.Info(L"----------");
    run.logger.ClearPauseOnClose();
    CloseCrashReporting();
    return EXIT_NO_ERROR;
}

} // namespace

std::wstring GetCopyPath()
{
    return Installer::NameUninstallerTempFolder() + c_copyName;
}

ExitCode Relocate(const RunContext& run, const std::wstring& ownPath, const std::wstring& argument,
                  wil::unique_handle& mutex)
{
    run.logger.Info(L"Uninstaller is running inside installation directory. Copying to temporary location so we can "
                    L"continue...");
    std::wstring start;
    std::optional<HRESULT> failure;
    try
    {
        const std::wstring copy = Installer::GetUninstallerTempFolder() + c_copyName;
        const HRESULT copied = CopyProgram(Installer::ToExtendedPath(ownPath), copy);
        if (copied != S_OK)
        {
            return EndWithoutCopy(run, std::to_wstring(copied));
        }
        ReleaseSingleInstance(mutex);
        start = L'"' + copy + L"\" process (with args of \"" + argument + L"\")";
        run.logger.Info(L"Starting " + start);
        failure = Start(copy, argument);
    }
    catch (const std::exception& exception)
    {
        return EndWithoutCopy(run, Installer::WidenExceptionText(exception.what()));
    }
    return failure ? EndWithCopyNotStarted(run, start, *failure, ownPath) : EndWithCopyStarted(run);
}

} // namespace Uninstaller
