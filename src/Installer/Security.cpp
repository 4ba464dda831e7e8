#include "Installer/Security.h"

#include "Installer/ProcessSnapshot.h"
#include "Installer/ScopedPrivilege.h"

#include <wil/result.h>
#include <wil/token_helpers.h>

#include <map>
#include <stdexcept>
#include <string_view>

namespace Installer
{

namespace
{

constexpr std::wstring_view c_explorerName = L"explorer.exe";

// WTSGetActiveConsoleSessionId's result while no session is attached to the console.
constexpr DWORD c_noSession = 0xFFFFFFFF;

constexpr DWORD c_noProcess = 0;

// Session IDs and the process IDs of their explorer.exe: the last one in the snapshot, if there are several.
std::map<DWORD, DWORD> FindExplorers()
{
    const wil::unique_tool_help_snapshot snapshot = TakeProcessSnapshot();
    THROW_LAST_ERROR_IF(!snapshot);

    std::map<DWORD, DWORD> explorers;
    ForEachProcess(snapshot, [&](const PROCESSENTRY32W& process) {
        if (process.szExeFile == c_explorerName)
        {
            // A process that has exited counts to session 0, which has no desktop.
            DWORD session = 0;
            ProcessIdToSessionId(process.th32ProcessID, &session);
            explorers[session] = process.th32ProcessID;
        }
    });
    return explorers;
}

// The process ID of the console session's Explorer, or c_noProcess.
DWORD ChooseExplorer(const std::map<DWORD, DWORD>& explorers, DWORD consoleSession)
{
    if (consoleSession == c_noSession)
    {
        return explorers.size() == 1 ? explorers.begin()->second : c_noProcess;
    }
    const auto explorer = explorers.find(consoleSession);
    return explorer == explorers.end() ? c_noProcess : explorer->second;
}

// Opens an Explorer process; empty on failure, with the last error set. Another user's process (over-the-shoulder
// elevation) needs SeDebugPrivilege.
wil::unique_process_handle OpenExplorer(DWORD id) noexcept
{
    wil::unique_process_handle process(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, id));
    if (process || GetLastError() != ERROR_ACCESS_DENIED)
    {
        return process;
    }
    if (const ScopedPrivilege debugging(SE_DEBUG_NAME); debugging)
    {
        process.reset(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, id));
    }
    SetLastError(ERROR_ACCESS_DENIED); // of the first attempt
    return process;
}

} // namespace

bool IsTokenElevated()
{
    return wil::get_token_information<TOKEN_ELEVATION>(GetCurrentThreadEffectiveToken()).TokenIsElevated != 0;
}

wil::unique_handle GetActiveConsoleExplorerToken()
{
    const DWORD consoleSession = WTSGetActiveConsoleSessionId();
    const DWORD processId = ChooseExplorer(FindExplorers(), consoleSession);
    if (processId == c_noProcess)
    {
        throw std::runtime_error("Unable to find a explorer.exe process running under the active console session!");
    }
    const wil::unique_process_handle process = OpenExplorer(processId);
    THROW_LAST_ERROR_IF(!process);
    wil::unique_handle token;
    THROW_IF_WIN32_BOOL_FALSE(
        OpenProcessToken(process.get(), TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE, token.put()));
    return token;
}

} // namespace Installer
