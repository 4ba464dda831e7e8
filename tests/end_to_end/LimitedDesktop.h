#pragma once

#include "LimitedToken.h"
#include "support/Names.h"
#include "support/Owners.h"
#include "support/Waiting.h"
#include "support/Wine.h"

#include <windows.h>

#include <exdisp.h>
#include <shlguid.h>

#include <stdexcept>
#include <string>

namespace Testing
{
// The desktop of a user whose administrator's rights are asleep. On Windows every desktop is one. Wine makes one when
// it is needed for the first time, with the rights of whoever needs it: this has to be made before that.
class LimitedDesktop
{
public:
    LimitedDesktop()
    {
        if (!IsWine())
        {
            return;
        }
        Start();
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        const bool isReady = BecomesTrue(Answers);
        CoUninitialize();
        DWORD code = 0;
        GetExitCodeProcess(m_explorer.get(), &code);
        if (!isReady || code != STILL_ACTIVE)
        {
            throw std::runtime_error("The limited desktop does not answer, or there is another one.");
        }
    }
    LimitedDesktop(const LimitedDesktop&) = delete;
    LimitedDesktop& operator=(const LimitedDesktop&) = delete;

private:
    void Start()
    {
        const UniqueHandle token = LimitedToken();
        std::wstring commandLine = LR"("C:\windows\explorer.exe" /desktop)";
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION started{};
        if (!CreateProcessAsUserW(token.get(), nullptr, commandLine.data(), nullptr, nullptr, FALSE, DETACHED_PROCESS,
                                  nullptr, LR"(C:\windows)", &startup, &started))
        {
            ThrowWindowsError("Cannot start a limited desktop", GetLastError());
        }
        m_explorer.reset(started.hProcess);
        CloseHandle(started.hThread);
    }

    static bool Answers()
    {
        IShellWindows* windows = nullptr;
        const HRESULT result =
            CoCreateInstance(CLSID_ShellWindows, nullptr, CLSCTX_LOCAL_SERVER, IID_PPV_ARGS(&windows));
        const UniqueCom<IShellWindows> owned(windows);
        return SUCCEEDED(result);
    }

    UniqueHandle m_explorer;
};
} // namespace Testing
