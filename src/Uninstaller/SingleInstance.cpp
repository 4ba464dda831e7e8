#include "Uninstaller/SingleInstance.h"

#include <windows.h>

#include <wil/result.h>

#include <optional>

namespace Uninstaller
{

namespace
{

// Shared with the installer.
constexpr wchar_t c_mutexName[] = L"Global\\Velmora_Installer_Mutex";

} // namespace

std::optional<Ending> CheckSingleInstance(wil::unique_handle& mutex)
{
    mutex.reset(CreateMutexExW(nullptr, c_mutexName, CREATE_MUTEX_INITIAL_OWNER, MUTEX_ALL_ACCESS));
    if (!mutex || GetLastError() == ERROR_ALREADY_EXISTS)
    {
        return Ending(Outcome::AlreadyRunning);
    }
    return std::nullopt;
}

void ReleaseSingleInstance(wil::unique_handle& mutex)
{
    if (mutex)
    {
        THROW_IF_WIN32_BOOL_FALSE(CloseHandle(mutex.release()));
    }
}

} // namespace Uninstaller
