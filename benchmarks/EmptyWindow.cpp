// What every window with a logo takes: one of the status window's size and style, whose first frame is its logo.
#include "Installer/GdiPlus.h"
#include "Installer/Resources.h"

#include <windows.h>

#include <uxtheme.h>

#include <memory>

namespace
{
constexpr int c_width = 500;
constexpr int c_height = 340;
constexpr Gdiplus::ARGB c_background = 0xFF0D0B18;
const Gdiplus::RectF c_logo(68, 40, 364, 156);

Gdiplus::Bitmap* g_logo = nullptr;

void Paint(HWND window)
{
    PAINTSTRUCT paint{};
    const HDC target = BeginPaint(window, &paint);
    RECT area{};
    GetClientRect(window, &area);
    HDC buffered = nullptr;
    const HPAINTBUFFER buffer = BeginBufferedPaint(target, &area, BPBF_TOPDOWNDIB, nullptr, &buffered);
    {
        Gdiplus::Graphics graphics(buffered);
        graphics.SetSmoothingMode(Gdiplus::SmoothingModeHighQuality);
        graphics.SetInterpolationMode(Gdiplus::InterpolationModeHighQualityBicubic);
        graphics.SetCompositingQuality(Gdiplus::CompositingQualityHighQuality);
        graphics.SetPixelOffsetMode(Gdiplus::PixelOffsetModeHighQuality);
        const Gdiplus::SolidBrush brush((Gdiplus::Color(c_background)));
        graphics.FillRectangle(&brush, Gdiplus::RectF(0, 0, c_width, c_height));
        graphics.DrawImage(g_logo, c_logo);
    }
    EndBufferedPaint(buffer, TRUE);
    EndPaint(window, &paint);
}

LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message)
    {
    case WM_NCCALCSIZE:
        return 0;
    case WM_PAINT:
        Paint(window);
        return 0;
    default:
        return DefWindowProcW(window, message, wParam, lParam);
    }
}

IStream* OpenLogo(HINSTANCE module)
{
    const HRSRC resource = FindResourceW(module, MAKEINTRESOURCEW(IDR_LOGO), L"PNG");
    const DWORD size = SizeofResource(module, resource);
    const HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, size);
    CopyMemory(GlobalLock(memory), LockResource(LoadResource(module, resource)), size);
    GlobalUnlock(memory);
    IStream* stream = nullptr;
    CreateStreamOnHGlobal(memory, TRUE, &stream);
    return stream;
}
} // namespace

int WINAPI wWinMain(HINSTANCE module, HINSTANCE, PWSTR, int)
{
    ULONG_PTR token = 0;
    const Gdiplus::GdiplusStartupInput version1;
    Gdiplus::GdiplusStartup(&token, &version1, nullptr);
    BufferedPaintInit();

    WNDCLASSEXW description{};
    description.cbSize = sizeof(description);
    description.lpfnWndProc = WindowProcedure;
    description.hInstance = module;
    description.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    description.lpszClassName = L"VELMORA_EMPTY_WINDOW";
    RegisterClassExW(&description);
    const int x = (GetSystemMetrics(SM_CXSCREEN) - c_width) / 2;
    const int y = (GetSystemMetrics(SM_CYSCREEN) - c_height) / 2;
    const HWND window =
        CreateWindowExW(WS_EX_TOPMOST, description.lpszClassName, L"Empty", WS_BORDER | WS_SYSMENU | WS_MINIMIZEBOX, x,
                        y, c_width, c_height, nullptr, nullptr, module, nullptr);
    const auto logo = std::make_unique<Gdiplus::Bitmap>(OpenLogo(module));
    g_logo = logo.get();
    ShowWindow(window, SW_SHOW);
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0)
    {
        DispatchMessageW(&message);
    }
    return 0;
}
