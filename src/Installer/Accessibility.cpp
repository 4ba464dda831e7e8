#include "Installer/Accessibility.h"

#include <oleauto.h>

#include <wil/result.h>

#include <memory>
#include <new>
#include <string>
#include <string_view>

namespace Installer
{

namespace
{

// The installer's names: both programs show the same window.
constexpr std::wstring_view c_name = L"Velmora Installer";
constexpr std::wstring_view c_automationId = L"Velmora_Installer";

HRESULT ReturnInt32(LONG number, VARIANT& result)
{
    result.vt = VT_I4;
    result.lVal = number;
    return S_OK;
}

HRESULT ReturnString(std::wstring_view text, VARIANT& result)
{
    wil::unique_bstr copy(SysAllocStringLen(text.data(), static_cast<UINT>(text.size())));
    RETURN_IF_NULL_ALLOC(copy);
    result.vt = VT_BSTR;
    result.bstrVal = copy.release();
    return S_OK;
}

template <class Interface>
HRESULT ReturnInterface(Interface& object, Interface** result)
{
    object.AddRef();
    *result = &object;
    return S_OK;
}

} // namespace

HRESULT AccessibleElement::QueryInterface(REFIID id, void** result) noexcept
{
    *result = nullptr;
    if (id == __uuidof(IUnknown) || id == __uuidof(IRawElementProviderSimple))
    {
        *result = static_cast<IRawElementProviderSimple*>(this);
    }
    else if (id == __uuidof(IRawElementProviderFragment))
    {
        *result = static_cast<IRawElementProviderFragment*>(this);
    }
    else
    {
        return E_NOINTERFACE;
    }
    static_cast<IRawElementProviderSimple*>(this)->AddRef();
    return S_OK;
}

HRESULT AccessibleElement::get_ProviderOptions(ProviderOptions* result) noexcept
{
    *result = ProviderOptions_ServerSideProvider;
    return S_OK;
}

HRESULT AccessibleElement::GetPatternProvider(PATTERNID, IUnknown** result) noexcept
{
    *result = nullptr;
    return S_OK;
}

HRESULT AccessibleElement::GetEmbeddedFragmentRoots(SAFEARRAY** result) noexcept
{
    *result = nullptr;
    return S_OK;
}

HRESULT AccessibleElement::SetFocus() noexcept
{
    return S_OK;
}

void AccessibleRoot::Line::Update(const std::wstring& text, const UiaRect& bounds) noexcept
try
{
    // Outside the lock: a client may query the text while the event is raised.
    if (Set(text, bounds) && UiaClientsAreListening())
    {
        UiaRaiseAutomationEvent(this, UIA_LiveRegionChangedEventId);
    }
}
CATCH_LOG()

// Returns whether the text has changed.
bool AccessibleRoot::Line::Set(const std::wstring& text, const UiaRect& bounds)
{
    const auto lock = m_lock.lock_exclusive();
    m_bounds = bounds;
    if (m_text == text)
    {
        return false;
    }
    m_text = text;
    return true;
}

ULONG AccessibleRoot::Line::AddRef() noexcept
{
    return m_root.AddRef();
}

ULONG AccessibleRoot::Line::Release() noexcept
{
    return m_root.Release();
}

HRESULT AccessibleRoot::Line::GetPropertyValue(PROPERTYID id, VARIANT* result) noexcept
{
    VariantInit(result);
    switch (id)
    {
    case UIA_ControlTypePropertyId:
        return ReturnInt32(UIA_TextControlTypeId, *result);
    case UIA_NamePropertyId: {
        const auto lock = m_lock.lock_shared();
        return ReturnString(m_text, *result);
    }
    default:
        return S_OK;
    }
}

HRESULT AccessibleRoot::Line::get_HostRawElementProvider(IRawElementProviderSimple** result) noexcept
{
    *result = nullptr;
    return S_OK;
}

HRESULT AccessibleRoot::Line::Navigate(NavigateDirection direction, IRawElementProviderFragment** result) noexcept
{
    *result = nullptr;
    if (direction == NavigateDirection_Parent)
    {
        return ReturnInterface<IRawElementProviderFragment>(m_root, result);
    }
    if (direction == NavigateDirection_NextSibling && this == &m_root.Headline())
    {
        return ReturnInterface<IRawElementProviderFragment>(m_root.Status(), result);
    }
    if (direction == NavigateDirection_PreviousSibling && this == &m_root.Status())
    {
        return ReturnInterface<IRawElementProviderFragment>(m_root.Headline(), result);
    }
    return S_OK;
}

// The root's runtime ID comes from its window; a fragment without a window provides its own.
HRESULT AccessibleRoot::Line::GetRuntimeId(SAFEARRAY** result) noexcept
{
    *result = SafeArrayCreateVector(VT_I4, 0, 2);
    RETURN_IF_NULL_ALLOC(*result);
    LONG index = 0;
    for (int part : {UiaAppendRuntimeId, m_number})
    {
        SafeArrayPutElement(*result, &index, &part);
        ++index;
    }
    return S_OK;
}

HRESULT AccessibleRoot::Line::get_BoundingRectangle(UiaRect* result) noexcept
{
    RETURN_IF_FAILED(m_root.get_BoundingRectangle(result));
    const auto lock = m_lock.lock_shared();
    *result = {result->left + m_bounds.left, result->top + m_bounds.top, m_bounds.width, m_bounds.height};
    return S_OK;
}

HRESULT AccessibleRoot::Line::get_FragmentRoot(IRawElementProviderFragmentRoot** result) noexcept
{
    return ReturnInterface<IRawElementProviderFragmentRoot>(m_root, result);
}

wil::com_ptr_nothrow<AccessibleRoot> AccessibleRoot::Create(HWND window) noexcept
{
    std::unique_ptr<AccessibleRoot> created(new (std::nothrow) AccessibleRoot(window));
    wil::com_ptr_nothrow<AccessibleRoot> root;
    root.attach(created.release());
    return root;
}

HRESULT AccessibleRoot::QueryInterface(REFIID id, void** result) noexcept
{
    if (id != __uuidof(IRawElementProviderFragmentRoot))
    {
        return AccessibleElement::QueryInterface(id, result);
    }
    *result = static_cast<IRawElementProviderFragmentRoot*>(this);
    AddRef();
    return S_OK;
}

ULONG AccessibleRoot::AddRef() noexcept
{
    return ++m_references;
}

ULONG AccessibleRoot::Release() noexcept
{
    const ULONG remaining = --m_references;
    if (remaining == 0)
    {
        delete this;
    }
    return remaining;
}

HRESULT AccessibleRoot::GetPropertyValue(PROPERTYID id, VARIANT* result) noexcept
{
    VariantInit(result);
    switch (id)
    {
    case UIA_ControlTypePropertyId:
        return ReturnInt32(UIA_WindowControlTypeId, *result);
    case UIA_NamePropertyId:
        return ReturnString(c_name, *result);
    case UIA_AutomationIdPropertyId:
        return ReturnString(c_automationId, *result);
    default:
        return S_OK;
    }
}

HRESULT AccessibleRoot::get_HostRawElementProvider(IRawElementProviderSimple** result) noexcept
{
    return UiaHostProviderFromHwnd(m_window, result);
}

HRESULT AccessibleRoot::Navigate(NavigateDirection direction, IRawElementProviderFragment** result) noexcept
{
    *result = nullptr;
    switch (direction)
    {
    case NavigateDirection_FirstChild:
        return ReturnInterface<IRawElementProviderFragment>(m_headline, result);
    case NavigateDirection_LastChild:
        return ReturnInterface<IRawElementProviderFragment>(m_status, result);
    default:
        return S_OK;
    }
}

HRESULT AccessibleRoot::GetRuntimeId(SAFEARRAY** result) noexcept
{
    *result = nullptr;
    return S_OK;
}

HRESULT AccessibleRoot::get_BoundingRectangle(UiaRect* result) noexcept
{
    RECT bounds{};
    if (!GetWindowRect(m_window, &bounds))
    {
        *result = {};
        return static_cast<HRESULT>(UIA_E_ELEMENTNOTAVAILABLE);
    }
    *result = {static_cast<double>(bounds.left), static_cast<double>(bounds.top),
               static_cast<double>(bounds.right - bounds.left), static_cast<double>(bounds.bottom - bounds.top)};
    return S_OK;
}

HRESULT AccessibleRoot::get_FragmentRoot(IRawElementProviderFragmentRoot** result) noexcept
{
    return ReturnInterface<IRawElementProviderFragmentRoot>(*this, result);
}

HRESULT AccessibleRoot::ElementProviderFromPoint(double, double, IRawElementProviderFragment** result) noexcept
{
    *result = nullptr;
    return S_OK;
}

HRESULT AccessibleRoot::GetFocus(IRawElementProviderFragment** result) noexcept
{
    *result = nullptr;
    return S_OK;
}

} // namespace Installer
