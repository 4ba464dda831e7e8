// What assistive programs see of windows.
#pragma once

#include <windows.h>

#include <array>
#include <memory>
#include <optional>
#include <string>

namespace Testing
{
enum class Direction
{
    Parent,
    NextSibling,
    PreviousSibling,
    FirstChild,
    LastChild
};

// An element of a window of another program, asked for by UI Automation.
class AutomationElement
{
public:
    // That of the window itself; nothing when there is none.
    static std::optional<AutomationElement> Of(HWND window);

    // The neighbour in that direction; nothing when there is none.
    std::optional<AutomationElement> Go(Direction direction) const;

    // Its properties; empty, 0 or all 0 when it does not have them.
    std::wstring Name() const;
    std::wstring AutomationId() const;
    long ControlType() const;
    std::array<double, 4> Bounds() const; // left, top, width, height

private:
    explicit AutomationElement(void* node);

    std::shared_ptr<void> m_node;
};
} // namespace Testing
