// Windows, messages, dialogs.
#include "support/common/contract/Contract.h"
#include "support/common/contract/OpenObjects.h"

#include <commctrl.h>
#include <dwmapi.h>
#include <uxtheme.h>

#include <string_view>

namespace Testing
{

namespace
{

// A window that another thread has created is not this one's to destroy, paint or change.
bool IsOwnWindow(HWND window)
{
    const DWORD owner = IsWindow(window) ? GetWindowThreadProcessId(window, nullptr) : 0;
    return owner == 0 || owner == GetCurrentThreadId();
}

bool IsName(LPCWSTR name)
{
    return name != nullptr && (IsResourceId(name) || *name != L'\0');
}

const Contract<&RegisterClassExW> s_registerClass = [](const WNDCLASSEXW* description) {
    constexpr std::size_t c_longestName = 256;
    const bool hasName = description != nullptr && IsName(description->lpszClassName);
    return Verdict{
        {description != nullptr && description->cbSize == sizeof(*description), "WNDCLASSEX: its size"},
        {description == nullptr || description->lpfnWndProc != nullptr, "WNDCLASSEX: a window procedure"},
        {description == nullptr || description->hInstance != nullptr, "WNDCLASSEX: an instance"},
        {hasName, "WNDCLASSEX: a name"},
        {!hasName || IsResourceId(description->lpszClassName) ||
             std::wstring_view(description->lpszClassName).size() <= c_longestName,
         "WNDCLASSEX: a name of up to 256 characters"},
        {description == nullptr || (description->cbClsExtra >= 0 && description->cbWndExtra >= 0),
         "WNDCLASSEX: extra bytes are not negative"},
    };
};

const Contract<&UnregisterClassW> s_unregisterClass = [](LPCWSTR name, HINSTANCE) {
    return Verdict{{IsName(name), "a class's name or atom"}};
};

const Contract<&CreateWindowExW> s_createWindow = [](DWORD extendedStyle, LPCWSTR className, LPCWSTR, DWORD style, int,
                                                     int, int, int, HWND parent, HMENU, HINSTANCE, LPVOID) {
    // The same bits are WS_GROUP and WS_TABSTOP in a child.
    const bool hasBox = !HasAll(style, WS_CHILD) && (style & (WS_MINIMIZEBOX | WS_MAXIMIZEBOX)) != 0;
    return Verdict{
        {IsName(className), "a class's name or atom"},
        {!HasAll(style, WS_CHILD) || parent != nullptr, "a child has a parent"},
        {!HasAll(style, WS_CHILD | WS_POPUP), "Window Styles: WS_CHILD or WS_POPUP, not both"},
        {!hasBox || HasAll(style, WS_SYSMENU), "Window Styles: a minimize or maximize button needs WS_SYSMENU"},
        {!hasBox || !HasAll(extendedStyle, WS_EX_CONTEXTHELP),
         "Window Styles: a minimize or maximize button, or WS_EX_CONTEXTHELP, not both"},
    };
};

const Contract<&DestroyWindow> s_destroyWindow = [](HWND window) {
    return Verdict{
        {window != nullptr, "a window"},
        {IsOwnWindow(window), "a thread cannot destroy a window of another thread"},
    };
};

const Contract<&AdjustWindowRectEx> s_adjustWindowRect = [](LPRECT area, DWORD, BOOL, DWORD) {
    return Verdict{{area != nullptr, "a rectangle"}};
};

bool IsWindowIndex(int index)
{
    return index >= 0 || IsOneOf(index, GWLP_WNDPROC, GWLP_HINSTANCE, GWLP_HWNDPARENT, GWLP_ID, GWL_STYLE, GWL_EXSTYLE,
                                 GWLP_USERDATA);
}

const Contract<&GetWindowLongPtrW> s_getWindowLong = [](HWND window, int index) {
    return Verdict{
        {window != nullptr, "a window"},
        {IsWindowIndex(index), "a known index"},
    };
};

const Contract<&SetWindowLongPtrW> s_setWindowLong = [](HWND window, int index, LONG_PTR) {
    return Verdict{
        {window != nullptr, "a window"},
        {IsWindowIndex(index), "a known index"},
    };
};

const Contract<&SetWindowPos> s_setWindowPos = [](HWND window, HWND, int, int, int, int, UINT flags) {
    constexpr UINT c_flags = SWP_ASYNCWINDOWPOS | SWP_DEFERERASE | SWP_FRAMECHANGED | SWP_HIDEWINDOW | SWP_NOACTIVATE |
                             SWP_NOCOPYBITS | SWP_NOMOVE | SWP_NOOWNERZORDER | SWP_NOREDRAW | SWP_NOSENDCHANGING |
                             SWP_NOSIZE | SWP_NOZORDER | SWP_SHOWWINDOW;
    return Verdict{
        {window != nullptr, "a window"},
        {HasOnly(flags, c_flags), "known flags"},
    };
};

const Contract<&GetWindowRect> s_getWindowRect = [](HWND window, LPRECT area) {
    return Verdict{
        {window != nullptr, "a window"},
        {area != nullptr, "a place for the rectangle"},
    };
};

const Contract<&GetClientRect> s_getClientRect = [](HWND window, LPRECT area) {
    return Verdict{
        {window != nullptr, "a window"},
        {area != nullptr, "a place for the rectangle"},
    };
};

// Without a window, it invalidates all of the system's.
const Contract<&InvalidateRect> s_invalidateRect = [](HWND, const RECT*, BOOL) { return Verdict{}; };

const Contract<&GetWindow> s_getWindow = [](HWND window, UINT relation) {
    return Verdict{
        {window != nullptr, "a window"},
        {relation <= GW_ENABLEDPOPUP, "a known relation"},
    };
};

const Contract<&GetWindowThreadProcessId> s_getOwner = [](HWND window, LPDWORD) {
    return Verdict{{window != nullptr, "a window"}};
};

const Contract<&GetClassNameW> s_getClassName = [](HWND window, LPWSTR buffer, int size) {
    return Verdict{
        {window != nullptr, "a window"},
        {buffer != nullptr && size > 0, "a buffer with room for the terminating null character"},
    };
};

constexpr UINT c_lastMessage = 0xFFFF;

const Contract<&GetMessageW> s_getMessage = [](LPMSG message, HWND window, UINT first, UINT last) {
    const auto thread = reinterpret_cast<LONG_PTR>(window);
    return Verdict{
        {message != nullptr, "a place for the message"},
        {thread == 0 || thread == -1 || IsOwnWindow(window), "a window of this thread"},
        {first <= c_lastMessage && last <= c_lastMessage, "the high words of the filter are reserved"},
    };
};

const Contract<&TranslateMessage> s_translateMessage = [](const MSG* message) {
    return Verdict{{message != nullptr, "a message"}};
};

const Contract<&DispatchMessageW> s_dispatchMessage = [](const MSG* message) {
    return Verdict{{message != nullptr, "a message"}};
};

const Contract<&DefWindowProcW> s_defaultProcedure = [](HWND window, UINT, WPARAM, LPARAM) {
    return Verdict{{window != nullptr, "a window"}};
};

bool IsMessage(UINT message)
{
    return message <= c_lastMessage;
}
constexpr char c_message[] = "WM_USER: messages above 0xFFFF are reserved";

// A message that other applications understand, if it is sent to them.
bool IsForAll(HWND window, UINT message)
{
    return window != HWND_BROADCAST || message < WM_USER || message >= WM_APP;
}
constexpr char c_forAll[] = "WM_USER: messages of private window classes are not for other applications";

const Contract<&SendMessageW> s_sendMessage = [](HWND window, UINT message, WPARAM, LPARAM) {
    return Verdict{
        {window != nullptr, "a window"},
        {IsMessage(message), c_message},
        {IsForAll(window, message), c_forAll},
    };
};

const Contract<&SendMessageTimeoutW> s_sendMessageTimeout = [](HWND window, UINT message, WPARAM, LPARAM, UINT flags,
                                                               UINT, PDWORD_PTR) {
    constexpr UINT c_flags = SMTO_ABORTIFHUNG | SMTO_BLOCK | SMTO_NOTIMEOUTIFNOTHUNG | SMTO_ERRORONEXIT;
    return Verdict{
        {window != nullptr, "a window"},
        {IsMessage(message), c_message},
        {IsForAll(window, message), c_forAll},
        {HasOnly(flags, c_flags), "known flags"},
    };
};

const Contract<&PostMessageW> s_postMessage = [](HWND window, UINT message, WPARAM, LPARAM lParam) {
    return Verdict{
        {IsMessage(message), c_message},
        {IsForAll(window, message), c_forAll},
        {lParam == 0 || !IsOneOf(message, WM_GETTEXT, WM_SETTEXT, WM_COPYDATA, WM_SETTINGCHANGE),
         "a message with a pointer cannot be posted"},
        {message != WM_QUIT, "PostQuitMessage posts WM_QUIT"},
    };
};

bool IsMessageBoxType(UINT type)
{
    return (type & MB_TYPEMASK) <= MB_CANCELTRYCONTINUE && (type & MB_ICONMASK) <= MB_ICONINFORMATION &&
           (type & MB_DEFMASK) <= MB_DEFBUTTON4 && (type & MB_MODEMASK) <= MB_TASKMODAL;
}

const Contract<&MessageBoxW> s_messageBox = [](HWND owner, LPCWSTR, LPCWSTR, UINT type) {
    constexpr UINT c_options = MB_HELP | MB_SETFOREGROUND | MB_DEFAULT_DESKTOP_ONLY | MB_TOPMOST | MB_RIGHT |
                               MB_RTLREADING | MB_SERVICE_NOTIFICATION;
    return Verdict{
        {IsMessageBoxType(type), "one kind of buttons, one icon, one default button, one modality"},
        {HasOnly(type, c_options | MB_TYPEMASK | MB_ICONMASK | MB_DEFMASK | MB_MODEMASK), "known options"},
        {owner == nullptr || !HasAll(type, MB_SERVICE_NOTIFICATION), "MB_SERVICE_NOTIFICATION: no owner"},
    };
};

const Contract<&TaskDialogIndirect> s_taskDialog = [](const TASKDIALOGCONFIG* dialog, int*, int*, BOOL*) {
    constexpr int c_flags = 0x0101FFFF; // with TDF_NO_SET_FOREGROUND and TDF_SIZE_TO_CONTENT
    constexpr int c_commonButtons = 0x3F;
    const int flags = dialog == nullptr ? 0 : static_cast<int>(dialog->dwFlags);
    const bool usesIcon = HasAll(flags, TDF_USE_HICON_MAIN);
    const bool usesFooterIcon = HasAll(flags, TDF_USE_HICON_FOOTER);
    return Verdict{
        {dialog != nullptr && dialog->cbSize == sizeof(*dialog), "TASKDIALOGCONFIG: its size"},
        {HasOnly(flags, c_flags), "TASKDIALOGCONFIG: known flags"},
        {dialog == nullptr || HasOnly(static_cast<int>(dialog->dwCommonButtons), c_commonButtons),
         "TASKDIALOGCONFIG: known common buttons"},
        {dialog == nullptr ||
             (IsBuffer(dialog->pButtons, dialog->cButtons) && IsBuffer(dialog->pRadioButtons, dialog->cRadioButtons)),
         "TASKDIALOGCONFIG: as many buttons as it says"},
        {dialog == nullptr || usesIcon || IsResourceId(dialog->pszMainIcon),
         "TASKDIALOGCONFIG: the icon's resource ID"},
        {dialog == nullptr || usesFooterIcon || dialog->pszFooter == nullptr || IsResourceId(dialog->pszFooterIcon),
         "TASKDIALOGCONFIG: the footer icon's resource ID"},
    };
};

// A standard icon or cursor, which has no instance, and its ID in the documented range.
bool IsStandardId(LPCWSTR name)
{
    constexpr ULONG_PTR c_first = 32512;
    return IsResourceId(name) && reinterpret_cast<ULONG_PTR>(name) >= c_first;
}

const Contract<&LoadIconW> s_loadIcon = [](HINSTANCE instance, LPCWSTR name) {
    return Verdict{
        {name != nullptr, "an icon's name"},
        {instance != nullptr || IsStandardId(name), "without an instance, one of the system's icons"},
    };
};

const Contract<&LoadCursorW> s_loadCursor = [](HINSTANCE instance, LPCWSTR name) {
    return Verdict{
        {name != nullptr, "a cursor's name"},
        {instance != nullptr || IsStandardId(name), "without an instance, one of the system's cursors"},
    };
};

const Contract<&GetDC> s_getDc{[](HWND) { return Verdict{}; },
                               [](HDC dc, HWND) { NoteOpened(dc, Kind::WindowContext); }};

const Contract<&ReleaseDC> s_releaseDc{
    [](HWND, HDC dc) {
        return Verdict{{dc != nullptr && MayBe(dc, Kind::WindowContext), "a device context of GetDC"}};
    },
    [](int, HWND, HDC dc) { NoteClosed(dc); }};

const Contract<&GetDeviceCaps> s_getDeviceCaps = [](HDC dc, int index) {
    constexpr int c_last = 122; // COLORMGMTCAPS and beyond
    return Verdict{
        {dc != nullptr, "a device context"},
        {index >= DRIVERVERSION && index <= c_last, "a known item"},
    };
};

const Contract<&BeginPaint> s_beginPaint{
    [](HWND window, LPPAINTSTRUCT paint) {
        return Verdict{
            {window != nullptr, "a window"},
            {IsOwnWindow(window), "in response to WM_PAINT, which the thread of the window receives"},
            {paint != nullptr, "a place for the information"},
        };
    },
    [](HDC dc, HWND, LPPAINTSTRUCT) { NoteOpened(dc, Kind::PaintContext); }};

const Contract<&EndPaint> s_endPaint{
    [](HWND window, const PAINTSTRUCT* paint) {
        return Verdict{
            {window != nullptr, "a window"},
            {paint != nullptr && (paint->hdc == nullptr || MayBe(paint->hdc, Kind::PaintContext)),
             "the information of BeginPaint"},
        };
    },
    [](BOOL, HWND, const PAINTSTRUCT* paint) { NoteClosed(paint->hdc); }};

const Contract<&BufferedPaintInit> s_bufferedPaintInit{[]() { return Verdict{}; },
                                                       [](HRESULT result) {
                                                           if (SUCCEEDED(result))
                                                           {
                                                               NoteInitialized(State::BufferedPaint);
                                                           }
                                                       }};

const Contract<&BufferedPaintUnInit> s_bufferedPaintUnInit{
    []() {
        return Verdict{{IsInitialized(State::BufferedPaint),
                        "BufferedPaintInit: each call is matched with one of BufferedPaintUnInit"}};
    },
    [](HRESULT) { NoteUninitialized(State::BufferedPaint); }};

// BufferedPaintInit is not judged here: without it, each paint initializes anew.
const Contract<&BeginBufferedPaint> s_beginBufferedPaint{
    [](HDC target, const RECT* area, BP_BUFFERFORMAT format, BP_PAINTPARAMS* parameters, HDC* buffer) {
        constexpr DWORD c_flags = BPPF_ERASE | BPPF_NOCLIP | BPPF_NONCLIENT;
        return Verdict{
            {target != nullptr, "a device context"},
            {area != nullptr, "a rectangle"},
            {format >= BPBF_COMPATIBLEBITMAP && format <= BPBF_TOPDOWNMONODIB, "BP_BUFFERFORMAT: a known format"},
            {parameters == nullptr || parameters->cbSize == sizeof(*parameters), "BP_PAINTPARAMS: its size"},
            {parameters == nullptr || HasOnly(parameters->dwFlags, c_flags), "BP_PAINTPARAMS: known flags"},
            {buffer != nullptr, "a place for the device context"},
        };
    },
    [](HPAINTBUFFER buffer, HDC, const RECT*, BP_BUFFERFORMAT, BP_PAINTPARAMS*, HDC*) {
        NoteOpened(buffer, Kind::PaintBuffer);
    }};

const Contract<&BufferedPaintSetAlpha> s_bufferedPaintSetAlpha = [](HPAINTBUFFER buffer, const RECT*, BYTE) {
    return Verdict{{buffer != nullptr && MayBe(buffer, Kind::PaintBuffer), "a buffer of BeginBufferedPaint"}};
};

const Contract<&EndBufferedPaint> s_endBufferedPaint{
    [](HPAINTBUFFER buffer, BOOL) {
        return Verdict{{buffer != nullptr && MayBe(buffer, Kind::PaintBuffer), "a buffer of BeginBufferedPaint"}};
    },
    [](HRESULT, HPAINTBUFFER buffer, BOOL) { NoteClosed(buffer); }};

const Contract<&DwmExtendFrameIntoClientArea> s_extendFrame = [](HWND window, const MARGINS* margins) {
    return Verdict{
        {window != nullptr, "a window"},
        {margins != nullptr, "margins"},
    };
};

// Not those that can only be queried.
bool IsSettableAttribute(DWORD attribute)
{
    constexpr DWORD c_visibleFrameBorderThickness = 37;
    constexpr DWORD c_last = 38;
    return attribute != 0 && attribute <= c_last &&
           !IsOneOf(attribute, DWMWA_NCRENDERING_ENABLED, DWMWA_CAPTION_BUTTON_BOUNDS, DWMWA_EXTENDED_FRAME_BOUNDS,
                    DWMWA_CLOAKED, c_visibleFrameBorderThickness);
}

const Contract<&DwmSetWindowAttribute> s_setAttribute = [](HWND window, DWORD attribute, LPCVOID value, DWORD size) {
    constexpr DWORD c_darkMode = 20; // DWMWA_USE_IMMERSIVE_DARK_MODE
    return Verdict{
        {window != nullptr, "a window"},
        {IsSettableAttribute(attribute), "DWMWINDOWATTRIBUTE: an attribute that can be set"},
        {value != nullptr && size != 0, "a value of that size"},
        {attribute != c_darkMode || size == sizeof(BOOL), "DWMWINDOWATTRIBUTE: a BOOL for the dark mode"},
    };
};

} // namespace

} // namespace Testing
