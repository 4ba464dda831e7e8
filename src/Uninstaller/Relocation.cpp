#include "Uninstaller/Relocation.h"

#include "Installer/Common.h"
#include "Installer/Path.h"
#include "Installer/Retry.h"
#include "Installer/UninstallerTempFolder.h"
#include "Uninstaller/SingleInstance.h"

#include <windows.h>

#include <wil/resource.h>
#include <wil/result.h>

#include <cstddef>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Uninstaller
{

namespace
{

constexpr wchar_t c_copyName[] = L"Velmora.Uninstaller.exe";

constexpr std::size_t c_chunkBytes = std::size_t{64} * 1024;

// S_OK for equal contents, HRESULT_FROM_WIN32(ERROR_FILE_INVALID) for different ones, or why they cannot be read.
HRESULT CompareContents(HANDLE file, HANDLE other)
{
    std::vector<char> chunk(c_chunkBytes);
    std::vector<char> otherChunk(c_chunkBytes);
    for (;;)
    {
        DWORD size = 0;
        DWORD otherSize = 0;
        RETURN_IF_WIN32_BOOL_FALSE(ReadFile(file, chunk.data(), static_cast<DWORD>(c_chunkBytes), &size, nullptr));
        RETURN_IF_WIN32_BOOL_FALSE(
            ReadFile(other, otherChunk.data(), static_cast<DWORD>(c_chunkBytes), &otherSize, nullptr));
        RETURN_HR_IF(HRESULT_FROM_WIN32(ERROR_FILE_INVALID),
                     std::string_view(chunk.data(), size) != std::string_view(otherChunk.data(), otherSize));
        if (size == 0)
        {
            return S_OK;
        }
    }
}

// Opens a file for reading; nobody can write to it or replace it meanwhile. Not through a link.
wil::unique_hfile Hold(const std::wstring& path, DWORD share)
{
    return wil::unique_hfile(CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING,
                                         FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
}

// One attempt. Replaces an earlier copy, and holds the new one.
HRESULT TryCopy(const std::wstring& from, const std::wstring& to, wil::unique_hfile& copy)
{
    copy.reset(); // of the last attempt
    // Deleted, not overwritten: it may be a link.
    if (!DeleteFileW(to.c_str()) && !Installer::IsNotFoundError(GetLastError()))
    {
        return HRESULT_FROM_WIN32(GetLastError());
    }
    if (!CopyFileExW(from.c_str(), to.c_str(), nullptr, nullptr, nullptr, COPY_FILE_ALLOW_DECRYPTED_DESTINATION))
    {
        // A failure without an error code counts as a success.
        const HRESULT result = HRESULT_FROM_WIN32(GetLastError());
        if (result != S_OK)
        {
            return result;
        }
    }
    copy = Hold(to, FILE_SHARE_READ);
    RETURN_LAST_ERROR_IF(!copy);
    const wil::unique_hfile original = Hold(from, FILE_SHARE_READ | FILE_SHARE_DELETE);
    RETURN_LAST_ERROR_IF(!original);
    return CompareContents(original.get(), copy.get());
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
        const Installer::UninstallerTempFolder folder = Installer::OpenUninstallerTempFolder();
        const std::wstring copy = folder.path + c_copyName;
        wil::unique_hfile heldCopy; // until its process exists
        HRESULT copied = folder.result;
        if (folder.IsPrivate())
        {
            copied = Installer::Retry(Installer::c_tenTimesPausingBetween,
                                      [&] { return TryCopy(Installer::ToExtendedPath(ownPath), copy, heldCopy); });
        }
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
