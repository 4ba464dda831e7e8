#include "Installer/ProcessTermination.h"

#include "Installer/Logger.h"

#include <string>

namespace Installer
{

namespace
{

constexpr UINT c_terminatedExitCode = 0;

// Also used for processes other than the client, despite the prefix.
constexpr wchar_t c_differentUser[] =
    L"[ClientHelper] This process is likely running under a different user account. We cannot close this without "
    L"resorting to... undesirable methods. Restart the system to continue.";
constexpr wchar_t c_alreadyClosed[] =
    L"[ClientHelper] Unable to open process, assuming it has closed at some point since last check...";
constexpr wchar_t c_openFailed[] = L"[ClientHelper] Failed to open Velmora process for termination: ";

} // namespace

wil::unique_process_handle OpenForTermination(DWORD id)
{
    return wil::unique_process_handle(OpenProcess(PROCESS_TERMINATE, FALSE, id));
}

BOOL Terminate(const wil::unique_process_handle& process)
{
    return TerminateProcess(process.get(), c_terminatedExitCode);
}

bool LogOpenFailure(Logger& logger, HRESULT result, bool capture)
{
    switch (result)
    {
    case E_ACCESSDENIED:
        logger.Warning(c_differentUser, false);
        return false;
    case E_INVALIDARG:
        logger.Warning(c_alreadyClosed, false);
        return true;
    default:
        logger.Error(c_openFailed + std::to_wstring(result), capture);
        return false;
    }
}

} // namespace Installer
