#include "Installer/StatusWindowThread.h"

#include "Installer/CrashStack.h"
#include "Installer/Resources.h"
#include "Installer/StatusWindowPainting.h"
#include "Installer/ThreadName.h"

#include <dwmapi.h>
#include <uxtheme.h>

#include <wil/result.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

namespace Installer
{

namespace
{

constexpr wchar_t c_threadName[] = L"ui_thread";
constexpr wchar_t c_logoResourceType[] = L"PNG";
constexpr wchar_t c_initialStatusText[] = L"Getting things ready...";
constexpr DWORD c_style = WS_BORDER | WS_SYSMENU | WS_MINIMIZEBOX; // OnCreate shows it
// Pixels at 96 DPI.
constexpr int c_width = 500;
constexpr int c_height = 340;
constexpr int c_baseDpi = 96;

// Process-wide: there is one status window, and WM_CREATE and WM_NCCALCSIZE precede GWLP_USERDATA.
struct WindowProcedureState
{
    std::wstring statusText = c_initialStatusText;
    std::int32_t progress = 0;
    RECT frame{}; // the frame's width on each side
};

WindowProcedureState& State()
{
    // Never destroyed: the window's thread outlives static destructors.
    static WindowProcedureState& state = *std::make_unique<WindowProcedureState>().release();
    return state;
}

StatusWindowData* GetData(HWND window)
{
    return reinterpret_cast<StatusWindowData*>(GetWindowLongPtrW(window, GWLP_USERDATA));
}

wil::com_ptr_nothrow<AccessibleRoot> GetAccessibilityRoot(HWND window)
{
    const auto* const data = GetData(window);
    return data == nullptr ? nullptr : data->accessibilityRoot;
}

RECT GetFrame(HWND window)
{
    const auto style = static_cast<DWORD>(GetWindowLongPtrW(window, GWL_STYLE));
    RECT frame{};
    if ((style & WS_THICKFRAME) != 0)
    {
        AdjustWindowRectEx(&frame, style & ~DWORD{WS_CAPTION}, FALSE, 0);
        frame.left = -frame.left;
        frame.top = -frame.top;
    }
    else if ((style & WS_BORDER) != 0)
    {
        frame = {1, 1, 1, 1};
    }
    return frame;
}

void OnCreate(HWND window)
{
    BufferedPaintInit();
    State().frame = GetFrame(window);
    constexpr MARGINS none{};
    DwmExtendFrameIntoClientArea(window, &none);
    SetWindowPos(window, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE | SWP_FRAMECHANGED | SWP_SHOWWINDOW);
}

// Extends the client area to the top: no caption.
void OnNcCalcSize(RECT& area)
{
    const RECT& frame = State().frame;
    area.left += frame.left;
    area.right -= frame.right;
    area.bottom -= frame.bottom;
}

void OnPaint(HWND window, StatusWindowData& data)
{
    // Raising a UI Automation event dispatches sent messages: WM_CLOSE may destroy the window during the painting.
    const auto reference = data.selfReference;
    const auto accessibilityRoot = data.accessibilityRoot;
    PaintStatusWindow(window, {
                                  .headline = data.headline,
                                  .statusText = State().statusText,
                                  .progress = State().progress,
                                  .logoResourceId = data.logoResourceId,
                                  .logo = data.logo ? &*data.logo : nullptr,
                                  .accessibilityRoot = accessibilityRoot.get(),
                              });
}

void OnSetStatusText(HWND window, const wchar_t* text) noexcept
try
{
    State().statusText = text;
    InvalidateRect(window, nullptr, TRUE);
}
CATCH_LOG()

void OnSetProgress(HWND window, std::int32_t progress)
{
    State().progress = progress;
    InvalidateRect(window, nullptr, TRUE);
}

// Disconnects UI Automation clients, which hold references to the provider.
void OnDestroy(HWND window)
{
    if (GetAccessibilityRoot(window))
    {
        UiaReturnRawElementProvider(window, 0, 0, nullptr);
    }
}

void OnNcDestroy(StatusWindowData* data)
{
    BufferedPaintUnInit();
    if (data != nullptr)
    {
        data->logo.reset();
        const auto last = std::move(data->selfReference); // may free the data
    }
}

LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message)
    {
    case WM_CREATE:
        OnCreate(window);
        break;
    case WM_NCCALCSIZE:
        if (lParam != 0)
        {
            OnNcCalcSize(*reinterpret_cast<RECT*>(lParam));
            return 0;
        }
        break;
    case WM_PAINT:
        if (auto* const data = GetData(window))
        {
            OnPaint(window, *data);
            return 0;
        }
        break;
    case WM_GETOBJECT:
        if (static_cast<LONG>(lParam) == UiaRootObjectId)
        {
            if (const auto root = GetAccessibilityRoot(window))
            {
                return UiaReturnRawElementProvider(window, wParam, lParam, root.get());
            }
        }
        break;
    case WM_DESTROY:
        OnDestroy(window);
        break;
    case WM_NCDESTROY:
        OnNcDestroy(GetData(window));
        break;
    case c_setStatusText:
        OnSetStatusText(window, reinterpret_cast<const wchar_t*>(lParam));
        break;
    case c_setProgress:
        OnSetProgress(window, static_cast<std::int32_t>(lParam));
        break;
    default:
        break;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

class GdiPlus
{
public:
    GdiPlus()
    {
        const Gdiplus::GdiplusStartupInput version1;
        m_started = Gdiplus::GdiplusStartup(&m_token, &version1, nullptr) == Gdiplus::Ok;
    }
    GdiPlus(const GdiPlus&) = delete;
    GdiPlus& operator=(const GdiPlus&) = delete;
    ~GdiPlus()
    {
        if (m_started)
        {
            Gdiplus::GdiplusShutdown(m_token);
        }
    }

    explicit operator bool() const { return m_started; }

private:
    ULONG_PTR m_token = 0;
    bool m_started = false;
};

class WindowClass
{
public:
    explicit WindowClass(const StatusWindowData& data) : m_module(data.module)
    {
        WNDCLASSEXW description{};
        description.cbSize = sizeof(description);
        description.lpfnWndProc = WindowProcedure;
        description.hInstance = data.module;
        description.hIcon = LoadIconW(data.module, MAKEINTRESOURCEW(IDI_VELMORA));
        description.hCursor = LoadCursorW(nullptr, IDC_ARROW);
        description.lpszClassName = data.className.c_str();
        m_atom = RegisterClassExW(&description);
    }
    WindowClass(const WindowClass&) = delete;
    WindowClass& operator=(const WindowClass&) = delete;
    ~WindowClass()
    {
        if (m_atom != 0)
        {
            UnregisterClassW(MAKEINTATOM(m_atom), m_module);
        }
    }

    explicit operator bool() const { return m_atom != 0; }

private:
    HINSTANCE m_module;
    ATOM m_atom = 0;
};

int ScaleToDpi(int length, int dpi)
{
    return static_cast<int>(static_cast<float>(dpi) * static_cast<float>(length) / c_baseDpi);
}

// Centred on the desktop.
wil::unique_hwnd CreateCenteredWindow(const StatusWindowData& data)
{
    HWND desktop = GetDesktopWindow();
    const auto dc = wil::GetDC(desktop);
    const int width = ScaleToDpi(c_width, GetDeviceCaps(dc.get(), LOGPIXELSX));
    const int height = ScaleToDpi(c_height, GetDeviceCaps(dc.get(), LOGPIXELSY));
    RECT area{};
    GetClientRect(desktop, &area);
    const int x = (area.right - area.left) / 2 - width / 2;
    const int y = (area.bottom - area.top) / 2 - height / 2;
    return wil::unique_hwnd(CreateWindowExW(0, data.className.c_str(), data.title.c_str(), c_style, x, y, width, height,
                                            nullptr, nullptr, data.module, nullptr));
}

// A stream of a copy of the resource; empty when it is missing or on failure.
wil::com_ptr_nothrow<IStream> CreateLogoStream(HINSTANCE module, int id)
{
    HRSRC resource = FindResourceW(module, MAKEINTRESOURCEW(id), c_logoResourceType);
    if (resource == nullptr)
    {
        return nullptr;
    }
    const HGLOBAL loaded = LoadResource(module, resource);
    const void* const bytes = loaded == nullptr ? nullptr : LockResource(loaded);
    const DWORD size = SizeofResource(module, resource);
    if (bytes == nullptr)
    {
        return nullptr;
    }
    wil::unique_hglobal memory(GlobalAlloc(GMEM_MOVEABLE, size));
    void* const copy = memory ? GlobalLock(memory.get()) : nullptr;
    if (copy == nullptr)
    {
        return nullptr;
    }
    std::memcpy(copy, bytes, size);
    GlobalUnlock(memory.get());
    wil::com_ptr_nothrow<IStream> stream;
    if (SUCCEEDED(CreateStreamOnHGlobal(memory.get(), TRUE, stream.put())))
    {
        // The stream owns the memory now.
        [[maybe_unused]] const HGLOBAL handedOver = memory.release();
    }
    return stream;
}

void LoadLogo(StatusWindowData& data)
{
    const auto stream = CreateLogoStream(data.module, data.logoResourceId);
    if (!stream)
    {
        return;
    }
    data.logo.emplace(stream.get());
    if (data.logo->GetLastStatus() != Gdiplus::Ok)
    {
        data.logo.reset();
    }
}

void SetUpWindow(HWND window, StatusWindowData& data)
{
    data.window = window;
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&data));
    constexpr BOOL dark = TRUE;
    DwmSetWindowAttribute(window, DWMWA_USE_IMMERSIVE_DARK_MODE, &dark, sizeof(dark));
    data.accessibilityRoot = AccessibleRoot::Create(window);
    LoadLogo(data);
    SetForegroundWindow(window);
}

void RunMessageLoop()
{
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0)
    {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

// Returns whether the window was created; if so, `data` is moved into its selfReference.
bool RunWindow(std::shared_ptr<StatusWindowData>& data)
{
    const GdiPlus gdiPlus;
    if (!gdiPlus)
    {
        return false;
    }
    const WindowClass windowClass(*data);
    if (!windowClass)
    {
        return false;
    }
    const wil::unique_hwnd window = CreateCenteredWindow(*data);
    if (!window)
    {
        return false;
    }
    SetUpWindow(window.get(), *data);
    data->selfReference = data;
    data->state = StatusWindowState::Running;
    data.reset();
    RunMessageLoop();
    return true;
}

} // namespace

DWORD WINAPI RunStatusWindowThread(void* argument)
{
    ReserveStackForCrashReport();
    NameThread(c_threadName);
    auto data = std::move(static_cast<StatusWindowData*>(argument)->selfReference);
    if (!RunWindow(data))
    {
        data->state = StatusWindowState::Failed;
        return 1;
    }
    return 0;
}

} // namespace Installer
