#pragma once

#include "support/unit/FakeGdiPlus.h"
#include "support/unit/FakeStatusWindow.h"
#include "support/unit/FakeTaskbarList.h"
#include "support/unit/FakeThread.h"
#include "support/unit/FakeThreadNames.h"
#include "support/unit/RecordedCall.h"
#include "support/unit/VirtualClock.h"

#include <windows.h>

#include <dwmapi.h>
#include <ole2.h>
#include <uiautomation.h>
#include <uxtheme.h>

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Testing
{

// The status window as its own thread makes it, with everything that it asks of Windows.
class FakeWindowThread : public FakeStatusWindow
{
public:
    explicit FakeWindowThread(Journal& calls) : FakeStatusWindow(calls)
    {
        journal.Name(Module(), "module");
        journal.Name(HWND_TOPMOST, "topmost");
    }

    static HINSTANCE Module() { return reinterpret_cast<HINSTANCE>(INT_PTR{0x140000000}); }

    VirtualClock clock;
    FakeGdiPlus gdiPlus{journal};
    FakeTaskbarList taskbar{journal};
    FakeThread thread;
    std::weak_ptr<Installer::StatusWindowData> data; // what both threads know of the window

    // The machine.
    int dpiX = 96;
    int dpiY = 96;
    RECT desktopArea{0, 0, 1920, 1080};
    RECT clientArea{0, 0, 498, 339};
    std::optional<LONG_PTR> style; // that the window gets; otherwise Windows adds a caption to what is asked for
    ULONGLONG threadStart = 10;    // milliseconds after the thread was made
    bool clientsListen = false;    // assistive programs

    // What the window procedure answers to a message.
    LRESULT Send(UINT message, WPARAM wParam = 0, LPARAM lParam = 0)
    {
        return m_procedure(Window(), message, wParam, lParam);
    }

    // Hands the window's thread a message out of its queue.
    void Post(UINT message, WPARAM wParam = 0, LPARAM lParam = 0)
    {
        m_queue.push_back({Window(), message, wParam, lParam, 0, {}});
        thread.GoOn();
    }

    // Ends the thread's message loop: its GetMessageW returns this.
    void EndLoop(int result = 0)
    {
        m_loopResult = result;
        thread.GoOn();
    }

    // What was made and never given back, by name.
    std::vector<std::string> LeftBehind() const
    {
        std::vector<std::string> left = gdiPlus.Living();
        for (const auto& [name, count] : m_open)
        {
            if (count != 0)
            {
                left.push_back(std::to_string(count) + ' ' + name);
            }
        }
        const auto add = [&](bool is, const char* name) {
            if (is)
            {
                left.emplace_back(name);
            }
        };
        add(m_windowExists, "window");
        add(taskbar.References() != 0, "taskbar list");
        add(m_memory != nullptr && GlobalFlags(m_memory) != GMEM_INVALID_HANDLE, "memory");
        add(!m_raisers.empty(), "elements that UI Automation holds");
        return left;
    }

private:
    // A handle, with its name in the journal.
    template <class Handle>
    Handle Make(const char* name)
    {
        m_last += 4;
        journal.Name(reinterpret_cast<void*>(m_last), name);
        return reinterpret_cast<Handle>(m_last);
    }

    // What a function does that makes or gives back things of a kind.
    std::function<void()> Count(const char* name, int change)
    {
        return [this, name, change] { m_open[name] += change; };
    }

    HANDLE MakeThread(void* argument, DWORD& id) override
    {
        data = static_cast<Installer::StatusWindowData*>(argument)->selfReference;
        if (journal.Add("CreateThread") != ERROR_SUCCESS)
        {
            return nullptr;
        }
        id = 4242;
        ++m_open["thread handle"];
        clock.At(clock.Now() + threadStart, [=, this] { thread.Start(&Installer::RunStatusWindowThread, argument); });
        return m_threadHandle;
    }

    LRESULT Take(UINT message, WPARAM wParam, LPARAM lParam) override { return Send(message, wParam, lParam); }

    void DestroyTheWindow()
    {
        Send(WM_DESTROY);
        Send(WM_NCDESTROY);
        m_windowExists = false;
    }

    std::map<std::string, int> m_open;
    WNDPROC m_procedure = nullptr;
    LONG_PTR m_userData = 0;
    LONG_PTR m_style = 0;
    std::deque<MSG> m_queue;
    std::optional<int> m_loopResult;
    HGLOBAL m_memory = nullptr;
    // Held until UI Automation is told that the window goes.
    std::vector<wil::com_ptr_nothrow<IRawElementProviderSimple>> m_raisers;

    ULONG_PTR m_last = 0x5d000000; // no real handle is as large
    HANDLE m_threadHandle = Make<HANDLE>("thread");
    HWND m_desktop = Make<HWND>("desktop");
    HDC m_paintDc = Make<HDC>("paint dc");
    HDC m_bufferDc = Make<HDC>("buffer dc");
    HPAINTBUFFER m_buffer = Make<HPAINTBUFFER>("buffer");
    static constexpr ATOM c_atom = 0xc123;

    // The thread.
    Fake<&::CloseHandle> m_closeHandle = [this](HANDLE handle) -> BOOL {
        if (handle != m_threadHandle)
        {
            return decltype(m_closeHandle)::Real(handle);
        }
        journal.Add("CloseHandle", handle);
        --m_open["thread handle"];
        return TRUE;
    };
    Fake<&::SetThreadStackGuarantee> m_guaranteeStack = [this](PULONG bytes) -> BOOL {
        EXPECT_TRUE(thread.IsCurrent());
        journal.Add("SetThreadStackGuarantee", *bytes);
        return TRUE;
    };
    FakeThreadNames m_threadNames{[this](HANDLE handle, PCWSTR description) {
        EXPECT_EQ(handle, GetCurrentThread());
        journal.Add("SetThreadDescription", description);
        return E_FAIL; // which does not matter
    }};

    // The desktop.
    RecordedCall<&::GetDesktopWindow> m_getDesktop{journal, m_desktop, nullptr};
    RecordedCall<&::GetDC> m_getDc{journal, Make<HDC>("desktop dc"), nullptr, Count("device context", 1)};
    RecordedCall<&::ReleaseDC> m_releaseDc{journal, 1, 0, Count("device context", -1)};
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
    RecordedCall<&::LoadIconW> m_loadIcon{journal, Make<HICON>("icon"), nullptr};
    RecordedCall<&::LoadCursorW> m_loadCursor{journal, Make<HCURSOR>("cursor"), nullptr};
    Fake<&::RegisterClassExW> m_registerClass = [this](const WNDCLASSEXW* description) -> ATOM {
        if (journal.Add("RegisterClassExW", description->style, description->cbClsExtra, description->cbWndExtra,
                        description->hInstance, description->hIcon, description->hCursor, description->hbrBackground,
                        description->lpszMenuName, description->lpszClassName, description->hIconSm) != ERROR_SUCCESS)
        {
            return 0;
        }
        m_procedure = description->lpfnWndProc;
        ++m_open["window class"];
        return c_atom;
    };
    RecordedCall<&::UnregisterClassW> m_unregisterClass{journal, TRUE, FALSE, [this] {
                                                            EXPECT_FALSE(m_windowExists);
                                                            --m_open["window class"];
                                                        }};
    Fake<&::CreateWindowExW> m_createWindow = [this](DWORD extendedStyle, LPCWSTR className, LPCWSTR title, DWORD asked,
                                                     int x, int y, int width, int height, HWND parent, HMENU menu,
                                                     HINSTANCE module, LPVOID parameter) -> HWND {
        const DWORD error = journal.Add("CreateWindowExW", extendedStyle, className, title, "0x" + Hex(asked), x, y,
                                        width, height, parent, menu, module, parameter);
        m_style = style.value_or(static_cast<LONG_PTR>(asked | WS_CAPTION | WS_CLIPSIBLINGS));
        m_windowExists = true;
        if (Send(WM_CREATE) == -1 || error != ERROR_SUCCESS)
        {
            DestroyTheWindow();
            return nullptr;
        }
        return Window();
    };
    Fake<&::DestroyWindow> m_destroyWindow = [this](HWND window) -> BOOL {
        journal.Add("DestroyWindow", window);
        if (!Exists(window) || !thread.IsCurrent())
        {
            SetLastError(Exists(window) ? ERROR_ACCESS_DENIED : ERROR_INVALID_WINDOW_HANDLE);
            return FALSE;
        }
        DestroyTheWindow();
        return TRUE;
    };
    Fake<&::SetWindowLongPtrW> m_setWindowLong = [this](HWND window, int index, LONG_PTR value) {
        journal.Add("SetWindowLongPtrW", window, index);
        EXPECT_EQ(index, GWLP_USERDATA);
        return std::exchange(m_userData, value);
    };
    Fake<&::GetWindowLongPtrW> m_getWindowLong = [this](HWND window, int index) {
        EXPECT_EQ(window, Window());
        return index == GWLP_USERDATA ? m_userData : index == GWL_STYLE ? m_style : 0;
    };
    Fake<&::AdjustWindowRectEx> m_adjustWindowRect = [this](LPRECT area, DWORD asked, BOOL menu, DWORD extendedStyle) {
        journal.Add("AdjustWindowRectEx", *area, "0x" + Hex(asked), menu, extendedStyle);
        *area = {-8, -7, 6, 5};
        return TRUE;
    };
    RecordedCall<&::SetWindowPos> m_setWindowPos{journal, TRUE, FALSE};
    Fake<&::DwmSetWindowAttribute> m_setAttribute = [this](HWND window, DWORD attribute, LPCVOID value,
                                                           DWORD) -> HRESULT {
        journal.Add("DwmSetWindowAttribute", window, attribute, *static_cast<const BOOL*>(value));
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
    Fake<&::DefWindowProcW> m_defaultProcedure = [this](HWND window, UINT message, WPARAM wParam,
                                                        LPARAM lParam) -> LRESULT {
        EXPECT_EQ(window, Window());
        const DWORD error = journal.Add("DefWindowProcW", message, wParam, Describe(message, lParam));
        if (message == WM_CLOSE)
        {
            DestroyTheWindow();
        }
        return message != WM_CREATE ? 4711 : error == ERROR_SUCCESS ? 0 : -1;
    };
    RecordedCall<&::InvalidateRect> m_invalidate{journal, TRUE, FALSE};

    // Painting.
    Fake<&::BeginPaint> m_beginPaint = [this](HWND window, LPPAINTSTRUCT paint) -> HDC {
        *paint = {};
        if (journal.Add("BeginPaint", window) != ERROR_SUCCESS)
        {
            return nullptr;
        }
        paint->hdc = m_paintDc;
        paint->rcPaint = {0, 0, 200, 339}; // only a part of the client area
        ++m_open["paint"];
        return m_paintDc;
    };
    Fake<&::EndPaint> m_endPaint = [this](HWND window, const PAINTSTRUCT* paint) -> BOOL {
        journal.Add("EndPaint", window, paint->hdc, paint->rcPaint);
        --m_open["paint"];
        return TRUE;
    };
    RecordedCall<&::BufferedPaintInit> m_initialize{journal, S_OK, E_FAIL, Count("buffered painting", 1)};
    RecordedCall<&::BufferedPaintUnInit> m_uninitialize{journal, S_OK, E_FAIL, Count("buffered painting", -1)};
    Fake<&::BeginBufferedPaint> m_beginBufferedPaint = [this](HDC target, const RECT* area, BP_BUFFERFORMAT format,
                                                              BP_PAINTPARAMS* parameters, HDC* dc) -> HPAINTBUFFER {
        if (journal.Add("BeginBufferedPaint", target, area, format, parameters->dwFlags, parameters->prcExclude,
                        parameters->pBlendFunction) != ERROR_SUCCESS)
        {
            return nullptr;
        }
        *dc = m_bufferDc;
        ++m_open["paint buffer"];
        return m_buffer;
    };
    RecordedCall<&::BufferedPaintSetAlpha> m_setAlpha{journal, E_NOTIMPL, E_FAIL}; // which does not matter
    RecordedCall<&::EndBufferedPaint> m_endBufferedPaint{journal, S_OK, E_FAIL, Count("paint buffer", -1)};

    // The logo.
    char m_logo[4] = {'l', 'o', 'g', 'o'}; // the resource's bytes
    RecordedCall<&::FindResourceW> m_findResource{journal, Make<HRSRC>("resource"), nullptr};
    RecordedCall<&::LoadResource> m_loadResource{journal, Make<HGLOBAL>("loaded"), nullptr};
    RecordedCall<&::LockResource> m_lockResource{journal, m_logo, nullptr};
    RecordedCall<&::SizeofResource> m_sizeofResource{journal, DWORD{sizeof(m_logo)}, 0};
    Fake<&::GlobalAlloc> m_globalAlloc = [this](UINT flags, SIZE_T size) -> HGLOBAL {
        const DWORD error = journal.Add("GlobalAlloc", flags, size);
        m_memory = error == ERROR_SUCCESS ? decltype(m_globalAlloc)::Real(flags, size) : nullptr;
        journal.Name(m_memory, m_memory == nullptr ? "null" : "memory");
        return m_memory;
    };
    Fake<&::GlobalLock> m_globalLock = [this](HGLOBAL memory) -> LPVOID {
        return journal.Add("GlobalLock", memory) == ERROR_SUCCESS ? decltype(m_globalLock)::Real(memory) : nullptr;
    };
    Fake<&::CreateStreamOnHGlobal> m_createStream = [this](HGLOBAL memory, BOOL deleteOnRelease,
                                                           LPSTREAM* stream) -> HRESULT {
        return journal.Add("CreateStreamOnHGlobal", memory, deleteOnRelease) == ERROR_SUCCESS
                   ? decltype(m_createStream)::Real(memory, deleteOnRelease, stream)
                   : E_OUTOFMEMORY;
    };

    // The taskbar and assistive programs.
    Fake<&::CoCreateInstance> m_createInstance = [this](REFCLSID id, LPUNKNOWN outer, DWORD context, REFIID interfaceId,
                                                        LPVOID* object) -> HRESULT {
        EXPECT_TRUE(id == CLSID_TaskbarList && interfaceId == __uuidof(ITaskbarList3));
        if (journal.Add("CoCreateInstance", "taskbar list", outer, context) != ERROR_SUCCESS)
        {
            return REGDB_E_CLASSNOTREG;
        }
        taskbar.AddRef();
        *object = &taskbar;
        return S_OK;
    };
    Fake<&::UiaReturnRawElementProvider> m_returnProvider = [this](HWND window, WPARAM wParam, LPARAM lParam,
                                                                   IRawElementProviderSimple* provider) -> LRESULT {
        EXPECT_TRUE(Exists(window));
        journal.Add("UiaReturnRawElementProvider", window, wParam, lParam, provider);
        if (provider == nullptr && wParam == 0 && lParam == 0)
        {
            m_raisers.clear();
        }
        return provider == nullptr ? 0 : 815;
    };
    Fake<&::UiaClientsAreListening> m_clientsAreListening = [this]() -> BOOL { return clientsListen; };
    Fake<&::UiaRaiseAutomationEvent> m_raiseEvent = [this](IRawElementProviderSimple* provider, EVENTID id) -> HRESULT {
        journal.Add("UiaRaiseAutomationEvent", id);
        if (m_windowExists)
        {
            provider->AddRef();
            m_raisers.emplace_back().attach(provider);
        }
        return S_OK;
    };
};

} // namespace Testing
