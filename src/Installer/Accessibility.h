#pragma once

#include <windows.h>

#include <ole2.h>
#include <uiautomation.h>

#include <wil/com.h>
#include <wil/resource.h>

#include <atomic>
#include <string>

// The status window as screen readers and other assistive programs see it: a window with two lines of text.
//
// They ask on threads of their own and may keep an element for longer than the window lives. The elements are therefore
// one object with one count of references, that of the root: as long as somebody holds any of them, all of them are
// there.
namespace Installer
{

// What the root and the lines have in common.
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

// The window itself.
class AccessibleRoot final : public AccessibleElement, public IRawElementProviderFragmentRoot
{
public:
    // A line of text.
    class Line final : public AccessibleElement
    {
    public:
        // A line without text, as part of a root. The number tells it from its sister.
        Line(AccessibleRoot& root, int number) : m_root(root), m_number(number) {}

        // Takes over the text and where it stands, in pixels from the window's left top corner. When the text is
        // another than before, programs that listen are told so.
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
        bool Store(const std::wstring& text, const UiaRect& bounds);

        AccessibleRoot& m_root;
        int m_number;
        wil::srwlock m_lock; // for the two below: the window's thread writes them, others read
        std::wstring m_text;
        UiaRect m_bounds{};
    };

    // With one reference, the caller's. Empty when memory is short.
    static wil::com_ptr_nothrow<AccessibleRoot> Create(HWND window) noexcept;

    // The lines, first and second.
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
