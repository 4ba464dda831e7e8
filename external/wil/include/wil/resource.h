// RAII owners of Windows' handles and memory. As in the library, the owners for COM, automation and services are
// defined if <combaseapi.h>, <oleauto.h> or <winsvc.h> precede this header; including it again after one of them adds
// its owners.
#ifndef WIL_STAND_IN_RESOURCE_H
#define WIL_STAND_IN_RESOURCE_H

#include "result_macros.h"

#include <cstddef>
#include <exception>
#include <memory>
#include <utility>

namespace wil
{

namespace details
{

// The invalid values of a handle type. Empty() is the value of an empty owner.
template <class Pointer>
struct NullIsEmpty
{
    static constexpr bool c_takesNull = true;
    static Pointer Empty() noexcept { return Pointer{}; }
    static bool IsEmpty(Pointer value) noexcept { return value == Pointer{}; }
};

struct NullOrInvalidIsEmpty : NullIsEmpty<HANDLE>
{
    static bool IsEmpty(HANDLE value) noexcept { return value == nullptr || value == INVALID_HANDLE_VALUE; }
};

struct InvalidOrNullIsEmpty : NullOrInvalidIsEmpty
{
    static constexpr bool c_takesNull = false;
    static HANDLE Empty() noexcept { return INVALID_HANDLE_VALUE; }
};

inline void TerminateUnless(bool condition) noexcept
{
    if (!condition)
    {
        std::terminate();
    }
}

} // namespace details

// Owns a value and closes it in its destructor. Move-only.
template <class Pointer, class CloseFunction, CloseFunction c_close, class EmptyPolicy>
class unique_any_t
{
public:
    unique_any_t() noexcept = default;

    explicit unique_any_t(Pointer value) noexcept : m_value(value) {}
    explicit unique_any_t(std::nullptr_t)
        requires(!EmptyPolicy::c_takesNull)
    = delete;
    unique_any_t(unique_any_t&& other) noexcept : m_value(other.release()) {}
    unique_any_t(const unique_any_t&) = delete;

    unique_any_t& operator=(unique_any_t&& other) noexcept
    {
        if (this != std::addressof(other))
        {
            reset(other.release());
        }
        return *this;
    }
    unique_any_t& operator=(const unique_any_t&) = delete;

    ~unique_any_t() { reset(); }

    Pointer get() const noexcept { return m_value; }

    explicit operator bool() const noexcept { return !EmptyPolicy::IsEmpty(m_value); }

    // Gives up ownership.
    [[nodiscard]] Pointer release() noexcept { return std::exchange(m_value, EmptyPolicy::Empty()); }

    // Closes the owned value and takes ownership of another. Preserves the last error.
    void reset(Pointer value = EmptyPolicy::Empty()) noexcept
    {
        if (*this)
        {
            const DWORD lastError = GetLastError();
            c_close(m_value);
            SetLastError(lastError);
        }
        m_value = value;
    }

    // For an out parameter: closes the owned value and returns the address of the member.
    Pointer* put() noexcept
    {
        reset();
        return &m_value;
    }
    Pointer* operator&() noexcept { return put(); }

    friend bool operator==(const unique_any_t& owner, std::nullptr_t) noexcept
        requires EmptyPolicy::c_takesNull
    {
        return !owner;
    }

private:
    Pointer m_value = EmptyPolicy::Empty();
};

// The common policy: null is the only invalid value.
template <class Pointer, class CloseFunction, CloseFunction c_close>
using unique_any = unique_any_t<Pointer, CloseFunction, c_close, details::NullIsEmpty<Pointer>>;

template <class CloseFunction, CloseFunction c_close>
using unique_any_handle_null = unique_any_t<HANDLE, CloseFunction, c_close, details::NullOrInvalidIsEmpty>;
template <class CloseFunction, CloseFunction c_close>
using unique_any_handle_invalid = unique_any_t<HANDLE, CloseFunction, c_close, details::InvalidOrNullIsEmpty>;

// Release a lock at the end of the scope.
using rwlock_release_exclusive_scope_exit =
    unique_any<SRWLOCK*, decltype(&::ReleaseSRWLockExclusive), ::ReleaseSRWLockExclusive>;
using rwlock_release_shared_scope_exit =
    unique_any<SRWLOCK*, decltype(&::ReleaseSRWLockShared), ::ReleaseSRWLockShared>;

// A slim reader/writer lock.
class srwlock
{
public:
    srwlock() = default;
    srwlock(const srwlock&) = delete;
    srwlock& operator=(const srwlock&) = delete;

    [[nodiscard]] rwlock_release_exclusive_scope_exit lock_exclusive() noexcept
    {
        ::AcquireSRWLockExclusive(&m_lock);
        return rwlock_release_exclusive_scope_exit(&m_lock);
    }
    [[nodiscard]] rwlock_release_shared_scope_exit lock_shared() noexcept
    {
        ::AcquireSRWLockShared(&m_lock);
        return rwlock_release_shared_scope_exit(&m_lock);
    }

    // Empty if the lock is held.
    [[nodiscard]] rwlock_release_exclusive_scope_exit try_lock_exclusive() noexcept
    {
        return rwlock_release_exclusive_scope_exit(::TryAcquireSRWLockExclusive(&m_lock) ? &m_lock : nullptr);
    }

private:
    SRWLOCK m_lock = SRWLOCK_INIT;
};

namespace details
{

// A device context, and what ReleaseDC or EndPaint needs.
struct WindowDc
{
    HDC dc = nullptr;
    HWND window = nullptr;

    static void Close(const WindowDc& value) noexcept { ::ReleaseDC(value.window, value.dc); }
};

struct PaintDc
{
    HDC dc = nullptr;
    HWND window = nullptr;
    PAINTSTRUCT paint{};

    static void Close(const PaintDc& value) noexcept { ::EndPaint(value.window, &value.paint); }
};

// Owns a device context. Neither copied nor moved.
template <class Storage>
class unique_dc
{
public:
    explicit unique_dc(const Storage& value) noexcept : m_value(value) {}
    unique_dc(const unique_dc&) = delete;
    unique_dc& operator=(const unique_dc&) = delete;
    ~unique_dc()
    {
        if (*this)
        {
            const DWORD lastError = GetLastError();
            Storage::Close(m_value);
            SetLastError(lastError);
        }
    }

    HDC get() const noexcept { return m_value.dc; }
    explicit operator bool() const noexcept { return m_value.dc != nullptr; }

private:
    Storage m_value;
};

} // namespace details

using unique_hdc_window = details::unique_dc<details::WindowDc>;
using unique_hdc_paint = details::unique_dc<details::PaintDc>;

// The device context of a window, or of the screen (null). Empty on failure.
[[nodiscard]] inline unique_hdc_window GetDC(HWND window) noexcept
{
    return unique_hdc_window({::GetDC(window), window});
}

// Calls EndPaint at the end of the scope. Empty on failure.
[[nodiscard]] inline unique_hdc_paint BeginPaint(HWND window) noexcept
{
    details::PaintDc value{.dc = nullptr, .window = window, .paint = {}};
    value.dc = ::BeginPaint(window, &value.paint);
    return unique_hdc_paint(value);
}

using unique_handle = unique_any_handle_null<decltype(&::CloseHandle), ::CloseHandle>;
using unique_hfile = unique_any_handle_invalid<decltype(&::CloseHandle), ::CloseHandle>;
using unique_hfind = unique_any_handle_invalid<decltype(&::FindClose), ::FindClose>;
using unique_tool_help_snapshot = unique_hfile;
// INVALID_HANDLE_VALUE is valid here: GetCurrentProcess() returns it.
using unique_process_handle = unique_any<HANDLE, decltype(&::CloseHandle), ::CloseHandle>;
using unique_hglobal = unique_any<HGLOBAL, decltype(&::GlobalFree), ::GlobalFree>;
using unique_hlocal_string = unique_any<PWSTR, decltype(&::LocalFree), ::LocalFree>;
using unique_hlocal_security_descriptor = unique_any<PSECURITY_DESCRIPTOR, decltype(&::LocalFree), ::LocalFree>;
using unique_hwnd = unique_any<HWND, decltype(&::DestroyWindow), ::DestroyWindow>;
using unique_hkey = unique_any<HKEY, decltype(&::RegCloseKey), ::RegCloseKey>;

enum class EventOptions : DWORD
{
    ManualReset = CREATE_EVENT_MANUAL_RESET,
};

// Owns an event.
class unique_event : public unique_handle
{
public:
    // Creates an unnamed event. Throws ResultException on failure.
    explicit(false) unique_event(EventOptions options)
        : unique_handle(::CreateEventExW(nullptr, nullptr, static_cast<DWORD>(options), EVENT_ALL_ACCESS))
    {
        THROW_LAST_ERROR_IF(!*this);
    }

    // Failures of the two end the process, as in the library.
    void SetEvent() const noexcept { details::TerminateUnless(::SetEvent(get()) != FALSE); }

    // Returns false on a timeout.
    bool wait(DWORD milliseconds = INFINITE, BOOL alertable = FALSE) const noexcept
    {
        const DWORD status = ::WaitForSingleObjectEx(get(), milliseconds, alertable);
        details::TerminateUnless(status != WAIT_FAILED);
        return status == WAIT_OBJECT_0;
    }
};

} // namespace wil

#endif

#if defined(_WINSVC_) && !defined(WIL_STAND_IN_WINSVC)
#define WIL_STAND_IN_WINSVC

namespace wil
{

using unique_schandle = unique_any<SC_HANDLE, decltype(&::CloseServiceHandle), ::CloseServiceHandle>;

} // namespace wil

#endif

#if defined(_COMBASEAPI_H_) && !defined(WIL_STAND_IN_COMBASEAPI)
#define WIL_STAND_IN_COMBASEAPI

namespace wil
{

using unique_cotaskmem_string = unique_any<PWSTR, decltype(&::CoTaskMemFree), ::CoTaskMemFree>;

} // namespace wil

#endif

#if defined(_OLEAUTO_H_) && !defined(WIL_STAND_IN_OLEAUTO)
#define WIL_STAND_IN_OLEAUTO

namespace wil
{

using unique_bstr = unique_any<BSTR, decltype(&::SysFreeString), ::SysFreeString>;

// A VARIANT that is cleared in its destructor. Move-only.
class unique_variant : public VARIANT
{
public:
    unique_variant() noexcept { ::VariantInit(this); }

    unique_variant(unique_variant&& other) noexcept : VARIANT(other) { ::VariantInit(&other); }
    unique_variant(const unique_variant&) = delete;
    unique_variant& operator=(const unique_variant&) = delete;

    // Preserves the last error.
    ~unique_variant()
    {
        const DWORD lastError = GetLastError();
        ::VariantClear(this);
        SetLastError(lastError);
    }

    // For an in/out parameter: does not clear the variant.
    VARIANT* addressof() noexcept { return this; }
};

// Copies a string to a BSTR. Both throw ResultException with E_OUTOFMEMORY.
inline unique_bstr make_bstr(PCWSTR source)
{
    unique_bstr text(::SysAllocString(source));
    THROW_IF_NULL_ALLOC(text);
    return text;
}
inline unique_variant make_variant_bstr(PCWSTR source)
{
    unique_bstr text = make_bstr(source);
    unique_variant variant;
    variant.vt = VT_BSTR;
    variant.bstrVal = text.release();
    return variant;
}

} // namespace wil

#endif
