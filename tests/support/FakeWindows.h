#pragma once

#include "support/FakeProcesses.h"
#include "support/ImportTableFake.h"
#include "support/Text.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Testing
{

struct FakeWindow
{
    std::uintptr_t handle = 0;
    DWORD process = 0;
    std::wstring className{};
    DWORD postError = ERROR_SUCCESS; // why no message can be posted to it, if so
};

// The top-level windows of the desktop, from the top to the bottom in the order in which they were added:
//     windows.Add({.handle = 0x10, .process = 40, .className = L"Window"});
// The calls go to the list of the processes: "top", "next <handle> <relation>", "owner <handle>", "class <handle>
// <size>", "post <handle> <message> <wParam> <lParam>". Handles, messages and parameters are hexadecimal.
class FakeWindows
{
public:
    explicit FakeWindows(FakeProcesses& processes) : m_processes(processes) {}

    void Add(const FakeWindow& window)
    {
        m_places[window.handle] = m_windows.size();
        m_windows.push_back(window);
    }

    // Destroys a window.
    void Remove(std::uintptr_t handle)
    {
        const auto place = m_places.find(handle);
        m_windows.erase(m_windows.begin() + static_cast<std::ptrdiff_t>(place->second));
        m_places.clear();
        for (std::size_t i = 0; i < m_windows.size(); ++i)
        {
            m_places[m_windows[i].handle] = i;
        }
    }

    // Is called after a message was posted, and when a window is asked whose it is, each with the window's handle.
    std::function<void(std::uintptr_t)> onPost = [](std::uintptr_t) {};
    std::function<void(std::uintptr_t)> onOwner = [](std::uintptr_t) {};

    // Whether the calls of a walk over the windows are left out of the list.
    bool walksAreSilent = false;

    // How many windows were walked over so far.
    std::size_t WalkedOver() const { return m_walkedOver; }

private:
    static HWND ToWindow(std::uintptr_t handle) { return reinterpret_cast<HWND>(handle); }
    static std::uintptr_t ToNumber(HWND window) { return reinterpret_cast<std::uintptr_t>(window); }

    void NoteWalk(std::string_view call, HWND window, std::string_view end = {}) const
    {
        if (!walksAreSilent)
        {
            m_processes.Note(std::string(call) + Hex(ToNumber(window)) + std::string(end));
        }
    }

    // Null, with the last error, for a window that is not (any more).
    const FakeWindow* Find(HWND window) const
    {
        const auto place = m_places.find(ToNumber(window));
        if (place == m_places.end())
        {
            SetLastError(ERROR_INVALID_WINDOW_HANDLE);
            return nullptr;
        }
        return &m_windows[place->second];
    }

    HWND At(std::size_t place)
    {
        if (place >= m_windows.size())
        {
            return nullptr;
        }
        ++m_walkedOver;
        return ToWindow(m_windows[place].handle);
    }

    HWND Next(HWND window) { return Find(window) == nullptr ? nullptr : At(m_places.at(ToNumber(window)) + 1); }

    DWORD Owner(HWND window, DWORD* process) const
    {
        onOwner(ToNumber(window));
        const FakeWindow* const found = Find(window);
        if (found == nullptr)
        {
            return 0; // Windows leaves the process as it was
        }
        *process = found->process;
        return found->process + 1;
    }

    int ReadClassName(HWND window, wchar_t* name, int size) const
    {
        const FakeWindow* const found = Find(window);
        if (found == nullptr)
        {
            return 0;
        }
        const auto length = std::min(found->className.size(), static_cast<std::size_t>(size) - 1);
        found->className.copy(name, length);
        name[length] = L'\0';
        return static_cast<int>(length);
    }

    BOOL Post(HWND window) const
    {
        const FakeWindow* const found = Find(window);
        if (found == nullptr || found->postError != ERROR_SUCCESS)
        {
            SetLastError(found == nullptr ? ERROR_INVALID_WINDOW_HANDLE : found->postError);
            return FALSE;
        }
        onPost(ToNumber(window));
        return TRUE;
    }

    FakeProcesses& m_processes;
    std::vector<FakeWindow> m_windows;
    std::unordered_map<std::uintptr_t, std::size_t> m_places; // by handle
    std::size_t m_walkedOver = 0;

    Fake<&GetTopWindow> m_top = [this](HWND parent) {
        NoteWalk("top ", parent);
        return At(0);
    };
    Fake<&GetWindow> m_next = [this](HWND window, UINT relation) {
        NoteWalk("next ", window, " " + std::to_string(relation));
        return Next(window);
    };
    Fake<&GetWindowThreadProcessId> m_owner = [this](HWND window, DWORD* process) {
        NoteWalk("owner ", window);
        return Owner(window, process);
    };
    Fake<&GetClassNameW> m_className = [this](HWND window, wchar_t* name, int size) {
        m_processes.Note("class " + Hex(ToNumber(window)) + " " + std::to_string(size));
        return ReadClassName(window, name, size);
    };
    Fake<&PostMessageW> m_post = [this](HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        m_processes.Note("post " + Hex(ToNumber(window)) + " " + Hex(message) + " " + Hex(wParam) + " " +
                         Hex(static_cast<std::uint64_t>(lParam)));
        return Post(window);
    };
};

} // namespace Testing
