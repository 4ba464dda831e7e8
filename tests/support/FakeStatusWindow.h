#pragma once

#include "Installer/StatusWindowThread.h"
#include "support/ImportTableFake.h"
#include "support/Text.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <shobjidl.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Testing
{

// A desktop on which the program shows its status window: at once, late, or not at all. What the window and the
// user get is noted, one line for each call:
//     window <class> "<title>" "<headline>" <logo>
//     text <text>, progress <percent of the whole run>, closed
//     foreground, box <icon> "<caption>" "<text>" (and " without an owner")
class FakeStatusWindow
{
public:
    static HWND Window() { return reinterpret_cast<HWND>(INT_PTR{0x30b6}); }

    enum class Outcome
    {
        Shown,
        Refused,
        Late, // shown by ShowNow, long after the program has given it up
    };
    Outcome outcome = Outcome::Shown;

    void ShowNow()
    {
        m_isThere = true;
        m_late->window = Window();
        m_late->state = Installer::StatusWindowState::Running;
        m_late.reset();
    }

    const std::vector<std::string>& Calls() const { return m_calls; }
    // Those since the last time.
    std::vector<std::string> Take() { return std::exchange(m_calls, {}); }

    // Is told of every call, when it is made.
    std::function<void(const std::string&)> onCall = [](const std::string&) {};

private:
    void Note(const std::string& call)
    {
        m_calls.push_back(call);
        onCall(call);
    }

    static std::string Quote(const std::wstring& text) { return " \"" + Narrow(text) + '"'; }

    // What the window's thread does at its start.
    void Start(Installer::StatusWindowData& data)
    {
        EXPECT_EQ(data.module, GetModuleHandleW(nullptr));
        Note("window " + Narrow(data.className) + Quote(data.title) + Quote(data.headline) + ' ' +
             std::to_string(data.logoResourceId));
        m_late = std::move(data.heldByWindowThread);
        if (outcome == Outcome::Refused)
        {
            data.state = Installer::StatusWindowState::Failed;
            m_late.reset();
        }
        if (outcome == Outcome::Shown)
        {
            ShowNow();
        }
    }

    void Take(UINT message, LPARAM parameter)
    {
        switch (message)
        {
        case Installer::c_setStatusText:
            return Note("text " + Narrow(reinterpret_cast<const wchar_t*>(parameter)));
        case Installer::c_setProgress:
            return Note("progress " + std::to_string(parameter));
        case WM_CLOSE:
            m_isThere = false;
            return Note("closed");
        default:
            ADD_FAILURE() << "the message " << message;
        }
    }

    std::vector<std::string> m_calls;
    std::shared_ptr<Installer::StatusWindowData> m_late;
    bool m_isThere = false;

    Fake<&CreateThread> m_createThread = [this](LPSECURITY_ATTRIBUTES security, SIZE_T stackSize,
                                                LPTHREAD_START_ROUTINE procedure, LPVOID argument, DWORD flags,
                                                LPDWORD id) -> HANDLE {
        if (procedure != &Installer::RunStatusWindowThread) // GoogleTest makes one when it reports a failure
        {
            return decltype(m_createThread)::Real(security, stackSize, procedure, argument, flags, id);
        }
        Start(*static_cast<Installer::StatusWindowData*>(argument));
        return CreateEventW(nullptr, TRUE, TRUE, nullptr); // a handle that can be closed
    };
    Fake<&SendMessageW> m_send = [this](HWND window, UINT message, WPARAM, LPARAM parameter) -> LRESULT {
        EXPECT_EQ(window, Window());
        EXPECT_TRUE(m_isThere);
        Take(message, parameter);
        return 0;
    };
    Fake<&IsWindow> m_isWindow = [this](HWND window) -> BOOL { return m_isThere && window == Window(); };
    Fake<&DestroyWindow> m_destroy = [this](HWND window) -> BOOL {
        EXPECT_EQ(window, Window());
        EXPECT_FALSE(m_isThere);
        return FALSE;
    };
    Fake<&SetForegroundWindow> m_setForeground = [this](HWND window) -> BOOL {
        if (window != nullptr)
        {
            EXPECT_EQ(window, Window());
            Note("foreground");
        }
        return TRUE;
    };
    Fake<&MessageBoxW> m_messageBox = [this](HWND owner, LPCWSTR text, LPCWSTR caption, UINT flags) {
        EXPECT_TRUE(owner == nullptr || owner == Window());
        Note("box " + std::to_string(flags) + Quote(caption) + Quote(text) +
             (owner == nullptr ? " without an owner" : ""));
        return IDOK;
    };
    Fake<&CoCreateInstance> m_createInstance = [this](REFCLSID id, LPUNKNOWN outer, DWORD context, REFIID interfaceId,
                                                      LPVOID* object) -> HRESULT {
        return id == CLSID_TaskbarList ? REGDB_E_CLASSNOTREG
                                       : m_createInstance.Hidden(id, outer, context, interfaceId, object);
    };
};

// A status window on that desktop. Its making takes no time; nobody is told of that and of its end.
class ShownStatusWindow
{
public:
    explicit ShownStatusWindow(FakeStatusWindow& desktop) : m_desktop(desktop)
    {
        const VirtualClock clock;
        m_window.emplace(GetModuleHandleW(nullptr), L"class", L"title", L"headline", 102);
        desktop.Take();
    }
    ShownStatusWindow(const ShownStatusWindow&) = delete;
    ShownStatusWindow& operator=(const ShownStatusWindow&) = delete;
    ~ShownStatusWindow()
    {
        m_desktop.onCall = [](const std::string&) {};
    }

    Installer::StatusWindow* Get() { return &*m_window; }

private:
    FakeStatusWindow& m_desktop;
    std::optional<Installer::StatusWindow> m_window;
};

} // namespace Testing
