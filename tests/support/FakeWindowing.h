#pragma once

#include "Installer/StatusWindowThread.h"
#include "support/FakeGdiPlus.h"
#include "support/FakeTaskbarList.h"
#include "support/FakeThread.h"
#include "support/FakeThreadNames.h"
#include "support/ImportTableFake.h"
#include "support/Journal.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <dwmapi.h>
#include <ole2.h>
#include <uiautomation.h>
#include <uxtheme.h>

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace Testing
{

// Everything that a program needs of Windows to show one window on a thread of its own: a desktop, one thread, one
// window class, one window. Calls and messages go to the journal; what a function is told to fail (by the journal)
// fails as Windows lets it fail.
class FakeWindowing
{
public:
    FakeWindowing();
    FakeWindowing(const FakeWindowing&) = delete;
    FakeWindowing& operator=(const FakeWindowing&) = delete;

    static HINSTANCE Module() { return reinterpret_cast<HINSTANCE>(INT_PTR{0x140000000}); }
    static HWND Window() { return reinterpret_cast<HWND>(INT_PTR{0x20a4}); }

    VirtualClock clock;
    Journal journal;
    FakeGdiPlus gdiPlus{journal};
    FakeTaskbarList taskbar{journal};
    FakeThread thread;

    // The machine. The window's style is what the window is given, plus what Windows adds.
    int dpiX = 96;
    int dpiY = 96;
    RECT desktopArea{0, 0, 1920, 1080};
    RECT clientArea{0, 0, 498, 339};
    RECT paintArea{0, 0, 498, 339}; // the part of it that Windows wants painted
    RECT windowArea{710, 370, 1210, 710};
    DWORD addedStyle = WS_CAPTION | WS_CLIPSIBLINGS;
    ULONGLONG threadStart = 10; // milliseconds after the thread was made
    std::string logo = "logo";  // the resource's bytes
    bool clientsListen = false; // assistive programs
    std::vector<IRawElementProviderSimple*> raisedFor;
    IRawElementProviderSimple* givenRoot = nullptr;         // not counted
    std::function<void()> onEvent = [] {};                  // is called while an event is raised
    std::function<void(void*)> onThreadMade = [](void*) {}; // is called with the thread's argument
    std::function<void()> onThreadHandleClosed = [] {};

    bool WindowExists() const { return m_windowExists; }

    // What the window procedure answers to a message.
    LRESULT Send(UINT message, WPARAM wParam = 0, LPARAM lParam = 0)
    {
        return m_procedure(Window(), message, wParam, lParam);
    }

    // Hands the window's thread a message out of its queue.
    void Post(UINT message, WPARAM wParam = 0, LPARAM lParam = 0);

    // Ends the thread's message loop: its GetMessageW returns this.
    void EndLoop(int result = 0);

    // What was made and never given back, by name.
    std::vector<std::string> LeftBehind() const;

private:
    void DestroyTheWindow();
    void ForgetRaisers();
    template <class Result, class... Arguments>
    Result Answer(const std::string& function, Result success, Result failure, const Arguments&... arguments)
    {
        journal.Add(function, arguments...);
        return journal.Fails(function) ? failure : success;
    }

    // Counts what is made and given back.
    std::map<std::string, int> m_open;
    WNDPROC m_procedure = nullptr;
    bool m_windowExists = false;
    LONG_PTR m_userData = 0;
    LONG_PTR m_style = 0;
    std::deque<MSG> m_queue;
    std::optional<int> m_loopResult;
    HGLOBAL m_memory = nullptr;
    std::vector<IRawElementProviderSimple*> m_raisers; // held until UI Automation is told that the window goes

    HANDLE m_threadHandle = reinterpret_cast<HANDLE>(INT_PTR{0x1c4});
    HWND m_desktop = reinterpret_cast<HWND>(INT_PTR{0x10010});
    HDC m_desktopDc = reinterpret_cast<HDC>(INT_PTR{0xd1});
    HDC m_paintDc = reinterpret_cast<HDC>(INT_PTR{0xd2});
    HDC m_bufferDc = reinterpret_cast<HDC>(INT_PTR{0xd3});
    HPAINTBUFFER m_buffer = reinterpret_cast<HPAINTBUFFER>(INT_PTR{0xb1});
    HICON m_icon = reinterpret_cast<HICON>(INT_PTR{0x1c0});
    HCURSOR m_cursor = reinterpret_cast<HCURSOR>(INT_PTR{0xc0});
    HRSRC m_resource = reinterpret_cast<HRSRC>(INT_PTR{0x5e});
    HGLOBAL m_loaded = reinterpret_cast<HGLOBAL>(INT_PTR{0x5f});
    static constexpr ATOM c_atom = 0xc123;

    // Threads.
    Fake<&::CreateThread> m_createThread = [this](LPSECURITY_ATTRIBUTES security, SIZE_T stackSize,
                                                  LPTHREAD_START_ROUTINE procedure, LPVOID argument, DWORD flags,
                                                  LPDWORD id) -> HANDLE {
        if (procedure != &Installer::RunStatusWindowThread) // GoogleTest makes one when it reports a failure
        {
            return decltype(m_createThread)::Real(security, stackSize, procedure, argument, flags, id);
        }
        journal.Add("CreateThread", security, stackSize, flags);
        onThreadMade(argument);
        if (journal.Fails("CreateThread"))
        {
            return nullptr;
        }
        *id = 4242;
        ++m_open["thread handle"];
        clock.At(clock.Now() + threadStart, [this, procedure, argument] { thread.Start(procedure, argument); });
        return m_threadHandle;
    };
    Fake<&::CloseHandle> m_closeHandle = [this](HANDLE handle) -> BOOL {
        if (handle != m_threadHandle)
        {
            return decltype(m_closeHandle)::Real(handle);
        }
        journal.Add("CloseHandle", handle);
        --m_open["thread handle"];
        onThreadHandleClosed();
        return TRUE;
    };
    FakeThreadNames m_threadNames{[this](HANDLE handle, PCWSTR description) {
        EXPECT_EQ(handle, GetCurrentThread());
        journal.Add("SetThreadDescription", description);
        return E_FAIL; // which does not matter
    }};

    // The desktop.
    Fake<&::GetDesktopWindow> m_getDesktop = [this] { return m_desktop; };
    Fake<&::GetDC> m_getDc = [this](HWND window) {
        journal.Add("GetDC", window);
        ++m_open["device context"];
        return m_desktopDc;
    };
    Fake<&::ReleaseDC> m_releaseDc = [this](HWND window, HDC dc) {
        journal.Add("ReleaseDC", window, dc);
        --m_open["device context"];
        return 1;
    };
    Fake<&::GetDeviceCaps> m_getDeviceCaps = [this](HDC dc, int index) {
        journal.Add("GetDeviceCaps", dc, index);
        return index == LOGPIXELSX ? dpiX : index == LOGPIXELSY ? dpiY : 0;
    };
    Fake<&::GetClientRect> m_getClientRect = [this](HWND window, LPRECT area) {
        journal.Add("GetClientRect", window);
        *area = window == m_desktop ? desktopArea : clientArea;
        return TRUE;
    };

    // The window's class and the window.
    Fake<&::LoadIconW> m_loadIcon = [this](HINSTANCE module, LPCWSTR name) {
        return Answer<HICON>("LoadIconW", m_icon, nullptr, module, name);
    };
    Fake<&::LoadCursorW> m_loadCursor = [this](HINSTANCE module, LPCWSTR name) {
        return Answer<HCURSOR>("LoadCursorW", m_cursor, nullptr, module, name);
    };
    Fake<&::RegisterClassExW> m_registerClass = [this](const WNDCLASSEXW* description) -> ATOM {
        EXPECT_EQ(description->cbSize, sizeof(*description));
        journal.Add("RegisterClassExW", description->style, description->cbClsExtra, description->cbWndExtra,
                    description->hInstance, description->hIcon, description->hCursor, description->hbrBackground,
                    description->lpszMenuName, description->lpszClassName, description->hIconSm);
        if (journal.Fails("RegisterClassExW"))
        {
            return 0;
        }
        m_procedure = description->lpfnWndProc;
        ++m_open["window class"];
        return c_atom;
    };
    Fake<&::UnregisterClassW> m_unregisterClass = [this](LPCWSTR name, HINSTANCE module) -> BOOL {
        journal.Add("UnregisterClassW", name, module);
        EXPECT_EQ(name, MAKEINTATOM(c_atom));
        EXPECT_FALSE(m_windowExists);
        --m_open["window class"];
        return TRUE;
    };
    Fake<&::CreateWindowExW> m_createWindow = [this](DWORD extendedStyle, LPCWSTR className, LPCWSTR title, DWORD style,
                                                     int x, int y, int width, int height, HWND parent, HMENU menu,
                                                     HINSTANCE module, LPVOID parameter) -> HWND {
        journal.Add("CreateWindowExW", extendedStyle, className, title, "0x" + Hex(style), x, y, width, height, parent,
                    menu, module, parameter);
        m_style = static_cast<LONG_PTR>(style | addedStyle);
        m_windowExists = true;
        const bool refused = Send(WM_CREATE) == -1;
        if (refused || journal.Fails("CreateWindowExW"))
        {
            DestroyTheWindow();
            return nullptr;
        }
        return Window();
    };
    Fake<&::DestroyWindow> m_destroyWindow = [this](HWND window) -> BOOL {
        journal.Add("DestroyWindow", window);
        if (!m_windowExists || window != Window() || !thread.IsCurrent())
        {
            SetLastError(m_windowExists && window == Window() ? ERROR_ACCESS_DENIED : ERROR_INVALID_WINDOW_HANDLE);
            return FALSE;
        }
        DestroyTheWindow();
        return TRUE;
    };
    Fake<&::IsWindow> m_isWindow = [this](HWND window) -> BOOL { return m_windowExists && window == Window(); };
    Fake<&::SetWindowLongPtrW> m_setWindowLong = [this](HWND window, int index, LONG_PTR value) {
        journal.Add("SetWindowLongPtrW", window, index);
        EXPECT_EQ(index, GWLP_USERDATA);
        return std::exchange(m_userData, value);
    };
    Fake<&::GetWindowLongPtrW> m_getWindowLong = [this](HWND window, int index) {
        EXPECT_EQ(window, Window());
        return index == GWLP_USERDATA ? m_userData : index == GWL_STYLE ? m_style : 0;
    };
    Fake<&::AdjustWindowRectEx> m_adjustWindowRect = [this](LPRECT area, DWORD style, BOOL menu, DWORD extendedStyle) {
        journal.Add("AdjustWindowRectEx", *area, "0x" + Hex(style), menu, extendedStyle);
        *area = {-8, -7, 6, 5};
        return TRUE;
    };
    Fake<&::SetWindowPos> m_setWindowPos = [this](HWND window, HWND after, int x, int y, int width, int height,
                                                  UINT flags) -> BOOL {
        journal.Add("SetWindowPos", window, after, x, y, width, height, "0x" + Hex(flags));
        return TRUE;
    };
    Fake<&::SetForegroundWindow> m_setForeground = [this](HWND window) -> BOOL {
        journal.Add("SetForegroundWindow", window);
        return FALSE; // which does not matter
    };
    Fake<&::GetWindowRect> m_getWindowRect = [this](HWND window, LPRECT area) -> BOOL {
        EXPECT_EQ(window, Window());
        *area = windowArea;
        return m_windowExists;
    };
    Fake<&::DwmSetWindowAttribute> m_setAttribute = [this](HWND window, DWORD attribute, LPCVOID value,
                                                           DWORD size) -> HRESULT {
        BOOL flag = FALSE;
        EXPECT_EQ(size, sizeof(flag));
        std::memcpy(&flag, value, sizeof(flag));
        journal.Add("DwmSetWindowAttribute", window, attribute, flag, size);
        return E_FAIL; // which does not matter
    };
    Fake<&::DwmExtendFrameIntoClientArea> m_extendFrame = [this](HWND window, const MARGINS* margins) -> HRESULT {
        journal.Add("DwmExtendFrameIntoClientArea", window, margins->cxLeftWidth, margins->cxRightWidth,
                    margins->cyTopHeight, margins->cyBottomHeight);
        return E_FAIL; // which does not matter
    };

    // Messages.
    Fake<&::GetMessageW> m_getMessage = [this](LPMSG message, HWND window, UINT first, UINT last) -> BOOL {
        journal.Add("GetMessageW", window, first, last);
        while (m_queue.empty() && !m_loopResult)
        {
            thread.StandStill();
        }
        if (m_loopResult)
        {
            return *m_loopResult;
        }
        *message = m_queue.front();
        m_queue.pop_front();
        return TRUE;
    };
    Fake<&::TranslateMessage> m_translateMessage = [this](const MSG* message) -> BOOL {
        journal.Add("TranslateMessage", message->message);
        return FALSE;
    };
    Fake<&::DispatchMessageW> m_dispatchMessage = [this](const MSG* message) {
        journal.Add("DispatchMessageW", message->message);
        return Send(message->message, message->wParam, message->lParam);
    };
    Fake<&::SendMessageW> m_sendMessage = [this](HWND window, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
        journal.Add("SendMessageW", window, message, wParam,
                    message == WM_USER + 1 ? journal.Describe(reinterpret_cast<const wchar_t*>(lParam))
                                           : journal.Describe(lParam));
        return m_windowExists && window == Window() ? Send(message, wParam, lParam) : 0;
    };
    Fake<&::DefWindowProcW> m_defaultProcedure = [this](HWND window, UINT message, WPARAM wParam,
                                                        LPARAM lParam) -> LRESULT {
        EXPECT_EQ(window, Window());
        const bool isText = message == WM_USER + 1;
        journal.Add("DefWindowProcW", message, wParam, isText ? "text" : journal.Describe(lParam));
        if (message == WM_CLOSE)
        {
            DestroyTheWindow();
        }
        return message == WM_CREATE ? (journal.Fails("WM_CREATE") ? -1 : 0) : 4711;
    };
    Fake<&::InvalidateRect> m_invalidate = [this](HWND window, const RECT* area, BOOL erase) -> BOOL {
        journal.Add("InvalidateRect", window, area, erase);
        return TRUE;
    };
    Fake<&::MessageBoxW> m_messageBox = [this](HWND owner, LPCWSTR text, LPCWSTR caption, UINT flags) {
        journal.Add("MessageBoxW", owner, text, caption, flags);
        return IDOK;
    };

    // Painting.
    Fake<&::BeginPaint> m_beginPaint = [this](HWND window, LPPAINTSTRUCT paint) -> HDC {
        journal.Add("BeginPaint", window);
        *paint = {};
        if (journal.Fails("BeginPaint"))
        {
            return nullptr;
        }
        paint->hdc = m_paintDc;
        paint->rcPaint = paintArea;
        ++m_open["paint"];
        return m_paintDc;
    };
    Fake<&::EndPaint> m_endPaint = [this](HWND window, const PAINTSTRUCT* paint) -> BOOL {
        journal.Add("EndPaint", window, paint->hdc, paint->rcPaint);
        --m_open["paint"];
        return TRUE;
    };
    Fake<&::BufferedPaintInit> m_bufferedPaintInit = [this]() -> HRESULT {
        journal.Add("BufferedPaintInit");
        ++m_open["buffered painting"];
        return S_OK;
    };
    Fake<&::BufferedPaintUnInit> m_bufferedPaintUnInit = [this]() -> HRESULT {
        journal.Add("BufferedPaintUnInit");
        --m_open["buffered painting"];
        return S_OK;
    };
    Fake<&::BeginBufferedPaint> m_beginBufferedPaint = [this](HDC target, const RECT* area, BP_BUFFERFORMAT format,
                                                              BP_PAINTPARAMS* parameters, HDC* dc) -> HPAINTBUFFER {
        EXPECT_EQ(parameters->cbSize, sizeof(*parameters));
        journal.Add("BeginBufferedPaint", target, *area, int{format}, parameters->dwFlags, parameters->prcExclude,
                    parameters->pBlendFunction);
        if (journal.Fails("BeginBufferedPaint"))
        {
            return nullptr;
        }
        *dc = m_bufferDc;
        ++m_open["paint buffer"];
        return m_buffer;
    };
    Fake<&::BufferedPaintSetAlpha> m_setAlpha = [this](HPAINTBUFFER buffer, const RECT* area, BYTE alpha) -> HRESULT {
        journal.Add("BufferedPaintSetAlpha", buffer, *area, alpha);
        return E_NOTIMPL; // which does not matter
    };
    Fake<&::EndBufferedPaint> m_endBufferedPaint = [this](HPAINTBUFFER buffer, BOOL update) -> HRESULT {
        journal.Add("EndBufferedPaint", buffer, update);
        --m_open["paint buffer"];
        return S_OK;
    };

    // The logo.
    Fake<&::FindResourceW> m_findResource = [this](HMODULE module, LPCWSTR name, LPCWSTR type) {
        return Answer<HRSRC>("FindResourceW", m_resource, nullptr, module, name, type);
    };
    Fake<&::LoadResource> m_loadResource = [this](HMODULE module, HRSRC resource) {
        return Answer<HGLOBAL>("LoadResource", m_loaded, nullptr, module, resource);
    };
    Fake<&::LockResource> m_lockResource = [this](HGLOBAL loaded) -> LPVOID {
        EXPECT_EQ(loaded, m_loaded);
        return journal.Fails("LockResource") ? nullptr : logo.data();
    };
    Fake<&::SizeofResource> m_sizeofResource = [this](HMODULE module, HRSRC resource) {
        return Answer<DWORD>("SizeofResource", static_cast<DWORD>(logo.size()), 0, module, resource);
    };
    Fake<&::GlobalAlloc> m_globalAlloc = [this](UINT flags, SIZE_T size) -> HGLOBAL {
        journal.Add("GlobalAlloc", flags, size);
        return m_memory = journal.Fails("GlobalAlloc") ? nullptr : decltype(m_globalAlloc)::Real(flags, size);
    };
    Fake<&::GlobalLock> m_globalLock = [this](HGLOBAL memory) -> LPVOID {
        return journal.Fails("GlobalLock") ? nullptr : decltype(m_globalLock)::Real(memory);
    };
    Fake<&::CreateStreamOnHGlobal> m_createStream = [this](HGLOBAL memory, BOOL deleteOnRelease,
                                                           LPSTREAM* stream) -> HRESULT {
        journal.Add("CreateStreamOnHGlobal", memory == m_memory, deleteOnRelease);
        return journal.Fails("CreateStreamOnHGlobal") ? E_OUTOFMEMORY
                                                      : decltype(m_createStream)::Real(memory, deleteOnRelease, stream);
    };

    // The taskbar and assistive programs.
    Fake<&::CoCreateInstance> m_createInstance = [this](REFCLSID id, LPUNKNOWN outer, DWORD context, REFIID interfaceId,
                                                        LPVOID* object) -> HRESULT {
        journal.Add("CoCreateInstance", id == CLSID_TaskbarList, outer, context,
                    interfaceId == __uuidof(ITaskbarList3));
        if (journal.Fails("CoCreateInstance"))
        {
            return REGDB_E_CLASSNOTREG;
        }
        taskbar.AddRef();
        *object = &taskbar;
        return S_OK;
    };
    Fake<&::UiaReturnRawElementProvider> m_returnProvider = [this](HWND window, WPARAM wParam, LPARAM lParam,
                                                                   IRawElementProviderSimple* provider) -> LRESULT {
        EXPECT_TRUE(m_windowExists);
        if (provider == nullptr)
        {
            journal.Add("UiaReturnRawElementProvider", window, wParam, lParam, provider);
            if (wParam == 0 && lParam == 0)
            {
                ForgetRaisers();
            }
            return 0;
        }
        journal.Add("UiaReturnRawElementProvider", window, wParam, lParam);
        givenRoot = provider;
        return 815;
    };
    Fake<&::UiaClientsAreListening> m_clientsAreListening = [this]() -> BOOL { return clientsListen; };
    Fake<&::UiaRaiseAutomationEvent> m_raiseEvent = [this](IRawElementProviderSimple* provider, EVENTID id) -> HRESULT {
        journal.Add("UiaRaiseAutomationEvent", id);
        raisedFor.push_back(provider);
        onEvent();
        if (m_windowExists)
        {
            provider->AddRef();
            m_raisers.push_back(provider);
        }
        return S_OK;
    };
};

} // namespace Testing
