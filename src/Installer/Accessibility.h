#pragma once

#include <windows.h>

#include <ole2.h>
#include <uiautomation.h>

#include <wil/com.h>
#include <wil/resource.h>

#include <atomic>
#include <string>

// The status window's UI Automation provider: a window with two text elements.
//
// UI Automation clients call it on other threads, and may keep an element longer than the window lives. All elements
// share the root's reference count: a reference to one keeps all of them alive.
namespace Installer
{

// The base of the root and its text elements.
class AccessibleElement : public IRawElementProviderSimple, public IRawElementProviderFragment
{
public:
    AccessibleElement(const AccessibleElement&) = delete;
    AccessibleElement& operator=(const AccessibleElement&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** result) noexcept override;

    HRESULT STDMETHODCALLTYPE get_ProviderOptions(ProviderOptions* result) noexcept override;
    HRESULT STDMETHODCALLTYPE GetPatternProvider(PATTERNID id, IUnknown** result) noexcept override;
    HRESULT STDMETHODCALLTYPE GetEmbeddedFragmentRoots(SAFEARRAY** result) noexcept override;
    HRESULT STDMETHODCALLTYPE SetFocus() noexcept override;

protected:
    AccessibleElement() = default;
    ~AccessibleElement() = default;
};

// The root of the fragment: the window.
class AccessibleRoot final : public AccessibleElement, public IRawElementProviderFragmentRoot
{
public:
    // A text element.
    class Line final : public AccessibleElement
    {
    public:
        // `number` makes its runtime ID unique within the root.
        Line(AccessibleRoot& root, int number) : m_root(root), m_number(number) {}

        // Sets the text and its bounds, in pixels from the window's top left corner. Raises a live-region event when
        // the text changes and a UI Automation client listens.
        void Update(const std::wstring& text, const UiaRect& bounds) noexcept;

        ULONG STDMETHODCALLTYPE AddRef() noexcept override;
        ULONG STDMETHODCALLTYPE Release() noexcept override;

        HRESULT STDMETHODCALLTYPE GetPropertyValue(PROPERTYID id, VARIANT* result) noexcept override;
        HRESULT STDMETHODCALLTYPE get_HostRawElementProvider(IRawElementProviderSimple** result) noexcept override;

        HRESULT STDMETHODCALLTYPE Navigate(NavigateDirection direction,
                                           IRawElementProviderFragment** result) noexcept override;
        HRESULT STDMETHODCALLTYPE GetRuntimeId(SAFEARRAY** result) noexcept override;
        HRESULT STDMETHODCALLTYPE get_BoundingRectangle(UiaRect* result) noexcept override;
        HRESULT STDMETHODCALLTYPE get_FragmentRoot(IRawElementProviderFragmentRoot** result) noexcept override;

    private:
        bool Set(const std::wstring& text, const UiaRect& bounds);

        AccessibleRoot& m_root;
        int m_number;
        wil::srwlock m_lock; // guards the two below: written by the window's thread, read by clients' threads
        std::wstring m_text;
        UiaRect m_bounds{};
    };

    // Returns an object with one reference; empty when out of memory.
    static wil::com_ptr_nothrow<AccessibleRoot> Create(HWND window) noexcept;

    Line& Headline() noexcept { return m_headline; }
    Line& Status() noexcept { return m_status; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** result) noexcept override;
    ULONG STDMETHODCALLTYPE AddRef() noexcept override;
    ULONG STDMETHODCALLTYPE Release() noexcept override;

    HRESULT STDMETHODCALLTYPE GetPropertyValue(PROPERTYID id, VARIANT* result) noexcept override;
    HRESULT STDMETHODCALLTYPE get_HostRawElementProvider(IRawElementProviderSimple** result) noexcept override;

    HRESULT STDMETHODCALLTYPE Navigate(NavigateDirection direction,
                                       IRawElementProviderFragment** result) noexcept override;
    HRESULT STDMETHODCALLTYPE GetRuntimeId(SAFEARRAY** result) noexcept override;
    HRESULT STDMETHODCALLTYPE get_BoundingRectangle(UiaRect* result) noexcept override;
    HRESULT STDMETHODCALLTYPE get_FragmentRoot(IRawElementProviderFragmentRoot** result) noexcept override;

    HRESULT STDMETHODCALLTYPE ElementProviderFromPoint(double x, double y,
                                                       IRawElementProviderFragment** result) noexcept override;
    HRESULT STDMETHODCALLTYPE GetFocus(IRawElementProviderFragment** result) noexcept override;

private:
    explicit AccessibleRoot(HWND window) : m_window(window) {}

    std::atomic<ULONG> m_references = 1;
    HWND m_window;
    Line m_headline{*this, 1};
    Line m_status{*this, 2};
};

} // namespace Installer
