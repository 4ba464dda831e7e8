#pragma once

#include "Installer/Accessibility.h"
#include "Installer/GdiPlus.h"

#include <windows.h>

#include <cstdint>
#include <string>

// What the status window looks like.
namespace Installer
{

// What the window shows.
struct StatusPicture
{
    const std::wstring& headline;
    const std::wstring& statusText;
    std::int32_t progress; // 0 to 100
    int logoResourceId;
    Gdiplus::Bitmap* logo;    // null: none
    AccessibleRoot* elements; // told what is painted where; null: nobody is told
};

// Answers WM_PAINT. What cannot be drawn is left out.
void PaintStatusWindow(HWND window, const StatusPicture& picture);

} // namespace Installer
