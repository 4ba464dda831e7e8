#pragma once

#include "Installer/StatusWindowThread.h"
#include "support/common/ImportTableFake.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>

namespace Testing
{

// What the journal reads when the status window is sent a text or its progress, and when it is closed.
inline std::string SentText(const std::string& text)
{
    return "SendMessageW(window, 1025, 0, \"" + text + "\")";
}

inline std::string SentProgress(int percent)
{
    return "SendMessageW(window, 1026, 0, " + std::to_string(percent) + ')';
}

inline constexpr char c_sentClose[] = "SendMessageW(window, 16, 0, 0)";

// What it reads when a message box is shown, owned by the window ("window") or by none ("null").
inline Calls ShownBox(UINT icon, const std::string& caption, const std::string& text,
                      const std::string& owner = "window")
{
    return {"SetForegroundWindow(" + owner + ')',
            "MessageBoxW(" + owner + ", \"" + text + "\", \"" + caption + "\", " + std::to_string(icon) + ')'};
}

// The one status window, as far as every thread sees the same of it.
class FakeStatusWindow
{
public:
    static HWND Window() { return reinterpret_cast<HWND>(INT_PTR{0x20a4}); }

    bool WindowExists() const { return m_windowExists; }

    Journal& journal;

protected:
    explicit FakeStatusWindow(Journal& calls) : journal(calls) { journal.Name(Window(), "window"); }
    FakeStatusWindow(const FakeStatusWindow&) = delete;
    FakeStatusWindow& operator=(const FakeStatusWindow&) = delete;
    virtual ~FakeStatusWindow() = default;

    // Makes the window's thread.
    virtual HANDLE MakeThread(void* argument, DWORD& id) = 0;
    // Takes a message while the window exists.
    virtual LRESULT Take(UINT message, WPARAM wParam, LPARAM lParam) = 0;

    bool Exists(HWND window) const { return m_windowExists && window == Window(); }

    // The last parameter of a message.
    std::string Describe(UINT message, LPARAM parameter) const
    {
        return message == Installer::c_setStatusText ? journal.Describe(reinterpret_cast<const wchar_t*>(parameter))
                                                     : journal.Describe(parameter);
    }

    bool m_windowExists = false;

private:
    Fake<&::CreateThread> m_createThread = [this](LPSECURITY_ATTRIBUTES security, SIZE_T stackSize,
                                                  LPTHREAD_START_ROUTINE procedure, LPVOID argument, DWORD flags,
                                                  LPDWORD id) -> HANDLE {
        if (procedure != &Installer::RunStatusWindowThread) // GoogleTest makes one when it reports a failure
        {
            return decltype(m_createThread)::Real(security, stackSize, procedure, argument, flags, id);
        }
        EXPECT_TRUE(security == nullptr && stackSize == 0 && flags == 0);
        return MakeThread(argument, *id);
    };
    Fake<&::IsWindow> m_isWindow = [this](HWND window) -> BOOL { return Exists(window); };
    Fake<&::SendMessageW> m_sendMessage = [this](HWND window, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
        journal.Add("SendMessageW", window, message, wParam, Describe(message, lParam));
        return Exists(window) ? Take(message, wParam, lParam) : 0;
    };
    Fake<&::SetForegroundWindow> m_setForeground = [this](HWND window) -> BOOL {
        journal.Add("SetForegroundWindow", window);
        return FALSE; // which does not matter
    };
    Fake<&::MessageBoxW> m_messageBox = [this](HWND owner, LPCWSTR text, LPCWSTR caption, UINT flags) {
        journal.Add("MessageBoxW", owner, text, caption, flags);
        return IDOK;
    };
};

} // namespace Testing
