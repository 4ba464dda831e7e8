// Windows, messages, dialogs.
#include "support/common/contract/Contract.h"
#include "support/common/contract/OpenObjects.h"

#include <commctrl.h>
#include <dwmapi.h>
#include <uxtheme.h>

#include <algorithm>
#include <string_view>

namespace Testing
{

namespace
{

bool IsBroadcast(HWND window)
{
    return window == HWND_BROADCAST;
}

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

const Contract<&CreateWindowExW> s_createWindow = [](DWORD, LPCWSTR className, LPCWSTR, DWORD style, int, int, int, int,
                                                     HWND parent, HMENU, HINSTANCE, LPVOID) {
    return Verdict{
        {IsName(className), "a class's name or atom"},
        {!HasAll(style, WS_CHILD) || parent != nullptr, "a child has a parent"},
        {!HasAll(style, WS_CHILD | WS_POPUP), "Window Styles: WS_CHILD or WS_POPUP, not both"},
        {(style & (WS_MINIMIZEBOX | WS_MAXIMIZEBOX)) == 0 || HasAll(style, WS_SYSMENU),
         "Window Styles: a minimize or maximize button needs WS_SYSMENU"},
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
        {HasAtMostOneOf(flags, SWP_SHOWWINDOW | SWP_HIDEWINDOW), "SWP_SHOWWINDOW or SWP_HIDEWINDOW, not both"},
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

const Contract<&InvalidateRect> s_invalidateRect = [](HWND window, const RECT*, BOOL) {
    return Verdict{{window != nullptr, "no window means all of the system's"}};
};

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

const Contract<&GetMessageW> s_getMessage = [](LPMSG message, HWND window, UINT, UINT) {
    const auto thread = reinterpret_cast<LONG_PTR>(window);
    return Verdict{
        {message != nullptr, "a place for the message"},
        {thread == 0 || thread == -1 || IsOwnWindow(window), "a window of this thread"},
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

// Messages below WM_USER are the system's; to another process, those above carry no pointers.
const Contract<&SendMessageW> s_sendMessage = [](HWND window, UINT message, WPARAM, LPARAM) {
    return Verdict{
        {window != nullptr, "a window"},
        {!IsBroadcast(window) || message < WM_USER || message >= 0xC000,
         "a broadcast message is the system's or registered"},
    };
};

const Contract<&SendMessageTimeoutW> s_sendMessageTimeout = [](HWND window, UINT message, WPARAM, LPARAM, UINT flags,
                                                               UINT timeout, PDWORD_PTR) {
    constexpr UINT c_flags = SMTO_ABORTIFHUNG | SMTO_BLOCK | SMTO_NOTIMEOUTIFNOTHUNG | SMTO_ERRORONEXIT;
    return Verdict{
        {window != nullptr, "a window"},
        {!IsBroadcast(window) || message < WM_USER || message >= 0xC000, "only the system's messages are marshaled"},
        {HasOnly(flags, c_flags), "known flags"},
        {timeout != 0, "a time-out"},
    };
};

const Contract<&PostMessageW> s_postMessage = [](HWND, UINT message, WPARAM, LPARAM) {
    constexpr UINT c_last = 0xFFFF;
    return Verdict{
        {message != 0 && message <= c_last, "About Messages and Message Queues: a message"},
        {!IsOneOf(message, WM_GETTEXT, WM_SETTEXT, WM_COPYDATA, WM_SETTINGCHANGE),
         "a message with a pointer cannot be posted"},
    };
};

bool IsMessageBoxType(UINT type)
{
    return (type & MB_TYPEMASK) <= MB_CANCELTRYCONTINUE && (type & MB_ICONMASK) <= MB_ICONINFORMATION &&
           (type & MB_DEFMASK) <= MB_DEFBUTTON4 && HasOnly(type, 0x007FFFFFU);
}

const Contract<&MessageBoxW> s_messageBox = [](HWND, LPCWSTR text, LPCWSTR, UINT type) {
    return Verdict{
        {text != nullptr, "a text"},
        {IsMessageBoxType(type), "one kind of buttons, one icon, one default button"},
    };
};

// Whether a default button is one of those shown; 0 is the first of them.
bool IsShownButton(const TASKDIALOGCONFIG& dialog)
{
    const auto common = static_cast<UINT>(dialog.dwCommonButtons);
    const bool hasNone = common == 0 && dialog.cButtons == 0;
    switch (dialog.nDefaultButton)
    {
    case 0:
        return true;
    case IDOK:
        if (hasNone || (common & TDCBF_OK_BUTTON) != 0)
        {
            return true;
        }
        break;
    case IDYES:
        if ((common & TDCBF_YES_BUTTON) != 0)
        {
            return true;
        }
        break;
    case IDNO:
        if ((common & TDCBF_NO_BUTTON) != 0)
        {
            return true;
        }
        break;
    case IDCANCEL:
        if ((common & TDCBF_CANCEL_BUTTON) != 0)
        {
            return true;
        }
        break;
    case IDRETRY:
        if ((common & TDCBF_RETRY_BUTTON) != 0)
        {
            return true;
        }
        break;
    case IDCLOSE:
        if ((common & TDCBF_CLOSE_BUTTON) != 0)
        {
            return true;
        }
        break;
    default:
        break;
    }
    return std::any_of(dialog.pButtons, dialog.pButtons + dialog.cButtons,
                       [&](const TASKDIALOG_BUTTON& button) { return button.nButtonID == dialog.nDefaultButton; });
}

bool IsShownRadioButton(const TASKDIALOGCONFIG& dialog)
{
    return dialog.nDefaultRadioButton == 0 ||
           std::any_of(dialog.pRadioButtons, dialog.pRadioButtons + dialog.cRadioButtons,
                       [&](const TASKDIALOG_BUTTON& button) { return button.nButtonID == dialog.nDefaultRadioButton; });
}

const Contract<&TaskDialogIndirect> s_taskDialog = [](const TASKDIALOGCONFIG* dialog, int*, int*, BOOL*) {
    constexpr int c_flags = 0x0100FFFF;
    constexpr int c_commonButtons = 0x3F;
    const bool hasButtons = dialog != nullptr && IsBuffer(dialog->pButtons, dialog->cButtons) &&
                            IsBuffer(dialog->pRadioButtons, dialog->cRadioButtons);
    const bool usesIcon = dialog != nullptr && HasAll(static_cast<int>(dialog->dwFlags), TDF_USE_HICON_MAIN);
    return Verdict{
        {dialog != nullptr && dialog->cbSize == sizeof(*dialog), "TASKDIALOGCONFIG: its size"},
        {dialog == nullptr || HasOnly(static_cast<int>(dialog->dwFlags), c_flags), "TASKDIALOGCONFIG: known flags"},
        {dialog == nullptr || HasOnly(static_cast<int>(dialog->dwCommonButtons), c_commonButtons),
         "TASKDIALOGCONFIG: known common buttons"},
        {dialog == nullptr || hasButtons, "TASKDIALOGCONFIG: as many buttons as it says"},
        {!hasButtons || IsShownButton(*dialog), "TASKDIALOGCONFIG: the default button is one of those shown"},
        {!hasButtons || IsShownRadioButton(*dialog),
         "TASKDIALOGCONFIG: the default radio button is one of those shown"},
        {dialog == nullptr || usesIcon || IsResourceId(dialog->pszMainIcon),
         "TASKDIALOGCONFIG: the icon's resource ID"},
    };
};

const Contract<&LoadIconW> s_loadIcon = [](HINSTANCE instance, LPCWSTR name) {
    return Verdict{
        {name != nullptr, "an icon's name"},
        {instance != nullptr || IsResourceId(name), "without an instance, one of the system's icons"},
    };
};

const Contract<&LoadCursorW> s_loadCursor = [](HINSTANCE instance, LPCWSTR name) {
    return Verdict{
        {name != nullptr, "a cursor's name"},
        {instance != nullptr || IsResourceId(name), "without an instance, one of the system's cursors"},
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

const Contract<&BeginPaint> s_beginPaint{[](HWND window, LPPAINTSTRUCT paint) {
                                             return Verdict{
                                                 {window != nullptr, "a window"},
                                                 {IsOwnWindow(window), "WM_PAINT: the thread of the window paints"},
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
    []() { return Verdict{{IsInitialized(State::BufferedPaint), "BufferedPaintInit comes before it on this thread"}}; },
    [](HRESULT) { NoteUninitialized(State::BufferedPaint); }};

const Contract<&BeginBufferedPaint> s_beginBufferedPaint{
    [](HDC target, const RECT* area, BP_BUFFERFORMAT format, BP_PAINTPARAMS* parameters, HDC* buffer) {
        constexpr DWORD c_flags = BPPF_ERASE | BPPF_NOCLIP | BPPF_NONCLIENT;
        return Verdict{
            {IsInitialized(State::BufferedPaint), "BufferedPaintInit comes before it on this thread"},
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

const Contract<&DwmSetWindowAttribute> s_setAttribute = [](HWND window, DWORD attribute, LPCVOID value, DWORD size) {
    constexpr DWORD c_darkMode = 20; // DWMWA_USE_IMMERSIVE_DARK_MODE
    constexpr DWORD c_last = 38;
    return Verdict{
        {window != nullptr, "a window"},
        {attribute >= 2 && attribute <= c_last, "DWMWINDOWATTRIBUTE: an attribute that can be set"},
        {value != nullptr && size != 0, "a value of that size"},
        {attribute != c_darkMode || size == sizeof(BOOL), "DWMWINDOWATTRIBUTE: a BOOL for the dark mode"},
    };
};

} // namespace

} // namespace Testing
