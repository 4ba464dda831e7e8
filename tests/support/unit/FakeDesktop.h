#pragma once

#include "support/unit/FakeStatusWindow.h"
#include "support/unit/VirtualClock.h"

#include <windows.h>

#include <shobjidl.h>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <utility>

namespace Testing
{

// The status window as the thread that drives it sees it: shown at once, late, or never.
// The journal reads what is to be shown as RunStatusWindowThread("<class>", "<title>", "<headline>", <logo>), which a
// test lets fail.
class FakeDesktop : public FakeStatusWindow
{
public:
    explicit FakeDesktop(Journal& calls) : FakeStatusWindow(calls) {}

    // Leaves the window to ShowNow, long after the program has given it up.
    bool comesLate = false;

    void ShowNow()
    {
        m_windowExists = true;
        m_data->window = Window();
        m_data->state = Installer::StatusWindowState::Running;
        m_data.reset();
    }

private:
    HANDLE MakeThread(void* argument, DWORD&) override
    {
        auto& data = *static_cast<Installer::StatusWindowData*>(argument);
        EXPECT_EQ(data.module, GetModuleHandleW(nullptr));
        const bool fails = journal.Add("RunStatusWindowThread", data.className.c_str(), data.title.c_str(),
                                       data.headline.c_str(), data.logoResourceId) != ERROR_SUCCESS;
        m_data = std::move(data.selfReference);
        if (fails)
        {
            data.state = Installer::StatusWindowState::Failed;
            m_data.reset();
        }
        else if (!comesLate)
        {
            ShowNow();
        }
        return CreateEventW(nullptr, TRUE, TRUE, nullptr); // a handle that can be closed
    }

    LRESULT Take(UINT message, WPARAM, LPARAM) override
    {
        m_windowExists = message != WM_CLOSE;
        return 0;
    }

    std::shared_ptr<Installer::StatusWindowData> m_data;

    Fake<&DestroyWindow> m_destroy = [this](HWND window) -> BOOL {
        EXPECT_EQ(window, Window());
        EXPECT_FALSE(m_windowExists);
        return FALSE;
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
    explicit ShownStatusWindow(FakeDesktop& desktop) : m_journal(desktop.journal)
    {
        const VirtualClock clock;
        m_window.emplace(GetModuleHandleW(nullptr), L"class", L"title", L"headline", 102);
        m_journal.Take();
    }
    ShownStatusWindow(const ShownStatusWindow&) = delete;
    ShownStatusWindow& operator=(const ShownStatusWindow&) = delete;
    ~ShownStatusWindow()
    {
        m_journal.onCall = [](const std::string&) {};
    }

    Installer::StatusWindow* Get() { return &*m_window; }

private:
    Journal& m_journal;
    std::optional<Installer::StatusWindow> m_window;
};

} // namespace Testing
