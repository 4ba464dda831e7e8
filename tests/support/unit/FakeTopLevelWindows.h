#pragma once

#include "support/common/ImportTableFake.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Testing
{

struct FakeTopLevelWindow
{
    std::uintptr_t handle = 0;
    DWORD process = 0;
    std::wstring className{};
};

// The top-level windows of the desktop, from the top to the bottom in the order in which they were added:
//     windows.Add({.handle = 0x10, .process = 40, .className = L"Window"});
// Journal:
//     GetTopWindow(window), GetWindow(window, relation), GetWindowThreadProcessId(window)
//     GetClassNameW(window, size), PostMessageW(window, message, wParam, lParam)
class FakeTopLevelWindows
{
public:
    explicit FakeTopLevelWindows(Journal& journal) : m_journal(journal) {}
    FakeTopLevelWindows(const FakeTopLevelWindows&) = delete;
    FakeTopLevelWindows& operator=(const FakeTopLevelWindows&) = delete;

    void Add(const FakeTopLevelWindow& window) { m_windows.push_back(window); }

    // Destroys a window.
    void Remove(std::uintptr_t handle)
    {
        std::erase_if(m_windows, [=](const FakeTopLevelWindow& window) { return window.handle == handle; });
    }

    // Is called after a message was posted, with the window's handle.
    std::function<void(std::uintptr_t)> onPost = [](std::uintptr_t) {};

private:
    // Null, with the last error, for a window that is not (any more).
    const FakeTopLevelWindow* Find(HWND window) const
    {
        const auto found =
            std::ranges::find(m_windows, reinterpret_cast<std::uintptr_t>(window), &FakeTopLevelWindow::handle);
        return Succeeds(found == m_windows.end() ? ERROR_INVALID_WINDOW_HANDLE : ERROR_SUCCESS) ? &*found : nullptr;
    }

    HWND At(std::size_t place) const
    {
        return place < m_windows.size() ? reinterpret_cast<HWND>(m_windows[place].handle) : nullptr;
    }

    Journal& m_journal;
    std::vector<FakeTopLevelWindow> m_windows;

    Fake<&GetTopWindow> m_top = [this](HWND parent) {
        m_journal.Add("GetTopWindow", parent);
        return At(0);
    };
    Fake<&GetWindow> m_next = [this](HWND window, UINT relation) {
        m_journal.Add("GetWindow", window, relation);
        const FakeTopLevelWindow* const found = Find(window);
        return found == nullptr ? nullptr : At(static_cast<std::size_t>(found - m_windows.data()) + 1);
    };
    Fake<&GetWindowThreadProcessId> m_owner = [this](HWND window, DWORD* process) -> DWORD {
        m_journal.Add("GetWindowThreadProcessId", window);
        const FakeTopLevelWindow* const found = Find(window);
        if (found == nullptr)
        {
            return 0; // Windows leaves the process as it was
        }
        *process = found->process;
        return found->process + 1;
    };
    Fake<&GetClassNameW> m_className = [this](HWND window, wchar_t* name, int size) {
        m_journal.Add("GetClassNameW", window, size);
        const FakeTopLevelWindow* const found = Find(window);
        if (found == nullptr)
        {
            return 0;
        }
        const auto length = found->className.copy(name, static_cast<std::size_t>(size) - 1);
        name[length] = L'\0';
        return static_cast<int>(length);
    };
    Fake<&PostMessageW> m_post = [this](HWND window, UINT message, WPARAM wParam, LPARAM lParam) -> BOOL {
        const DWORD error = m_journal.Add("PostMessageW", window, message, wParam, lParam);
        if (Find(window) == nullptr || !Succeeds(error))
        {
            return FALSE;
        }
        onPost(reinterpret_cast<std::uintptr_t>(window));
        return TRUE;
    };
};

} // namespace Testing
