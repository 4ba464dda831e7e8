// A user whose administrator's rights are asleep.
#pragma once

#include "support/end_to_end/Names.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/SampleInstallation.h"
#include "support/end_to_end/Waiting.h"
#include "support/end_to_end/Wine.h"

#include <windows.h>

#include <exdisp.h>
#include <shlguid.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace Testing
{
// The user's token.
inline UniqueHandle LimitedToken()
{
    TOKEN_LINKED_TOKEN linked{};
    DWORD size = 0;
    HANDLE primary = nullptr;
    const BOOL isLinked =
        GetTokenInformation(GetCurrentProcessToken(), TokenLinkedToken, &linked, sizeof(linked), &size);
    const UniqueHandle limited(linked.LinkedToken);
    if (!isLinked ||
        !DuplicateTokenEx(limited.get(), MAXIMUM_ALLOWED, nullptr, SecurityImpersonation, TokenPrimary, &primary))
    {
        ThrowWindowsError("There is no limited token", GetLastError());
    }
    return UniqueHandle(primary);
}

// Makes a program one that can be started without elevation, in the way that __COMPAT_LAYER=RunAsInvoker does on
// Windows: Wine follows the manifest in any case.
inline void RunAsInvoker(const std::wstring& program)
{
    constexpr std::string_view c_required = R"(level="requireAdministrator")";
    constexpr std::string_view c_invoker = R"(level="asInvoker"           )";
    static_assert(c_required.size() == c_invoker.size());
    WriteBytes(program, ReplaceAll(ReadText(program), c_required, c_invoker));
}

// The user's desktop. On Windows every desktop is one. Wine makes one when it is needed for the first time, with the
// rights of whoever needs it: this has to be made before that.
class LimitedDesktop
{
public:
    LimitedDesktop()
    {
        if (!IsWine())
        {
            return;
        }
        std::wstring commandLine = LR"("C:\windows\explorer.exe" /desktop)";
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION started{};
        if (!CreateProcessAsUserW(LimitedToken().get(), nullptr, commandLine.data(), nullptr, nullptr, FALSE,
                                  DETACHED_PROCESS, nullptr, LR"(C:\windows)", &startup, &started))
        {
            ThrowWindowsError("Cannot start a limited desktop", GetLastError());
        }
        m_explorer.reset(started.hProcess);
        CloseHandle(started.hThread);
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        const bool isReady = BecomesTrue(Answers);
        CoUninitialize();
        if (!isReady || WaitForSingleObject(m_explorer.get(), 0) != WAIT_TIMEOUT)
        {
            throw std::runtime_error("The limited desktop does not answer, or there is another one.");
        }
    }
    LimitedDesktop(const LimitedDesktop&) = delete;
    LimitedDesktop& operator=(const LimitedDesktop&) = delete;

private:
    static bool Answers()
    {
        IShellWindows* windows = nullptr;
        CoCreateInstance(CLSID_ShellWindows, nullptr, CLSCTX_LOCAL_SERVER, IID_PPV_ARGS(&windows));
        return UniqueCom<IShellWindows>(windows) != nullptr;
    }

    UniqueHandle m_explorer;
};
} // namespace Testing
