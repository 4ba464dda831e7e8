// A user whose administrator's rights are asleep.
#pragma once

#include "support/end_to_end/Names.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/Waiting.h"
#include "support/end_to_end/Wine.h"

#include <windows.h>

#include <exdisp.h>
#include <shlguid.h>

#include <cstddef>
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
    constexpr std::string_view c_invoker = R"(level="asInvoker")";
    const UniqueHandle file =
        OwnFile(CreateFileW(program.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    std::string content(GetFileSize(file.get(), nullptr), '\0');
    DWORD done = 0;
    ReadFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &done, nullptr);
    const std::size_t place = content.find(c_required);
    if (done != content.size() || place == std::string::npos)
    {
        throw std::runtime_error(ToUtf8(program) + " has no manifest that requires elevation.");
    }
    std::string changed(c_invoker);
    changed.resize(c_required.size(), ' ');
    SetFilePointer(file.get(), static_cast<LONG>(place), nullptr, FILE_BEGIN);
    if (!WriteFile(file.get(), changed.data(), static_cast<DWORD>(changed.size()), &done, nullptr))
    {
        ThrowWindowsError("Cannot write to " + ToUtf8(program), GetLastError());
    }
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
