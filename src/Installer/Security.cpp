#include "Installer/Security.h"

#include "Installer/ProcessSnapshot.h"

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

// What WTSGetActiveConsoleSessionId says while no session is attached to the console.
constexpr DWORD c_noSession = 0xFFFFFFFF;

constexpr DWORD c_noProcess = 0;

// The process IDs of the running Explorers by their session: of several in one session, the last in the snapshot.
std::map<DWORD, DWORD> FindExplorers()
{
    const wil::unique_tool_help_snapshot snapshot = TakeProcessSnapshot();
    THROW_LAST_ERROR_IF(!snapshot);

    std::map<DWORD, DWORD> explorers;
    ForEachProcess(snapshot, [&](const PROCESSENTRY32W& process) {
        if (process.szExeFile == c_explorerName)
        {
            // A process that has ended since counts as one of session 0, where nobody has a desktop.
            DWORD session = 0;
            ProcessIdToSessionId(process.th32ProcessID, &session);
            explorers[session] = process.th32ProcessID;
        }
    });
    return explorers;
}

// The Explorer of the session on the console, or c_noProcess.
DWORD ChooseExplorer(const std::map<DWORD, DWORD>& explorers, DWORD consoleSession)
{
    if (consoleSession == c_noSession)
    {
        return explorers.size() == 1 ? explorers.begin()->second : c_noProcess;
    }
    const auto explorer = explorers.find(consoleSession);
    return explorer == explorers.end() ? c_noProcess : explorer->second;
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
    const wil::unique_process_handle process(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, processId));
    THROW_LAST_ERROR_IF(!process);
    wil::unique_handle token;
    THROW_IF_WIN32_BOOL_FALSE(
        OpenProcessToken(process.get(), TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE, token.put()));
    return token;
}

} // namespace Installer
