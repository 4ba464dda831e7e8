#pragma once

#include "Installer/Accessibility.h"
#include "Installer/GdiPlus.h"

#include <windows.h>

#include <cstdint>
#include <string>

// The painting of the status window.
namespace Installer
{

struct StatusWindowContent
{
    const std::wstring& headline;
    const std::wstring& statusText;
    std::int32_t progress; // 0 to 100
    int logoResourceId;
    Gdiplus::Bitmap* logo;             // may be null
    AccessibleRoot* accessibilityRoot; // gets the painted texts and their bounds; may be null
};

// Handles WM_PAINT. What cannot be drawn is left out.
void PaintStatusWindow(HWND window, const StatusWindowContent& content);

} // namespace Installer
