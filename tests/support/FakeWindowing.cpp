#include "support/FakeWindowing.h"

namespace Testing
{

FakeWindowing::FakeWindowing()
{
    journal.Name(Module(), "module");
    journal.Name(Window(), "window");
    journal.Name(m_threadHandle, "thread");
    journal.Name(m_desktop, "desktop");
    journal.Name(m_desktopDc, "desktop dc");
    journal.Name(m_paintDc, "paint dc");
    journal.Name(m_bufferDc, "buffer dc");
    journal.Name(m_buffer, "buffer");
    journal.Name(m_icon, "icon");
    journal.Name(m_cursor, "cursor");
    journal.Name(m_resource, "resource");
    journal.Name(HWND_TOPMOST, "topmost");
}

void FakeWindowing::Post(UINT message, WPARAM wParam, LPARAM lParam)
{
    m_queue.push_back({.hwnd = Window(), .message = message, .wParam = wParam, .lParam = lParam, .time = 0, .pt = {}});
    thread.GoOn();
}

void FakeWindowing::EndLoop(int result)
{
    m_loopResult = result;
    thread.GoOn();
}

void FakeWindowing::DestroyTheWindow()
{
    Send(WM_DESTROY);
    Send(WM_NCDESTROY);
    m_windowExists = false;
}

void FakeWindowing::ForgetRaisers()
{
    for (IRawElementProviderSimple* const raiser : std::exchange(m_raisers, {}))
    {
        raiser->Release();
    }
}

std::vector<std::string> FakeWindowing::LeftBehind() const
{
    std::vector<std::string> left = gdiPlus.Living();
    for (const auto& [name, count] : m_open)
    {
        if (count != 0)
        {
            left.push_back(std::to_string(count) + ' ' + name);
        }
    }
    if (m_windowExists)
    {
        left.emplace_back("window");
    }
    if (taskbar.References() != 0)
    {
        left.emplace_back("taskbar list");
    }
    if (m_memory != nullptr && GlobalFlags(m_memory) != GMEM_INVALID_HANDLE)
    {
        left.emplace_back("memory");
    }
    if (!m_raisers.empty())
    {
        left.emplace_back("elements that UI Automation holds");
    }
    return left;
}

} // namespace Testing
