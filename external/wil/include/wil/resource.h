// Owners of Windows' handles and memory: each closes or frees what it holds when it goes out of scope.
#pragma once

#include "result_macros.h"

#include <combaseapi.h>
#include <oleauto.h>
#include <winsvc.h>

#include <cstddef>
#include <memory>
#include <utility>

namespace wil
{

namespace details
{

// Which values stand for "holds nothing": the first is the one that an empty owner has.
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

inline void EndUnless(bool condition) noexcept
{
    if (!condition)
    {
        std::terminate();
    }
}

} // namespace details

// Holds one value of which nobody else knows, and calls the function with it at the end. Moved, never copied.
template <class Pointer, class CloseFunction, CloseFunction c_close, class EmptyPolicy>
class unique_any_t
{
public:
    using pointer = Pointer;

    // Empty.
    unique_any_t() noexcept = default;
    explicit(false) unique_any_t(std::nullptr_t) noexcept
        requires EmptyPolicy::c_takesNull
    {}

    // Takes the value over.
    explicit unique_any_t(Pointer value) noexcept : m_value(value) {}
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
    unique_any_t& operator=(std::nullptr_t) noexcept
        requires EmptyPolicy::c_takesNull
    {
        reset();
        return *this;
    }
    unique_any_t& operator=(const unique_any_t&) = delete;

    ~unique_any_t() { reset(); }

    // The value, still owned.
    Pointer get() const noexcept { return m_value; }

    bool is_valid() const noexcept { return !EmptyPolicy::IsEmpty(m_value); }
    explicit operator bool() const noexcept { return is_valid(); }

    // The value, now the caller's to close.
    [[nodiscard]] Pointer release() noexcept { return std::exchange(m_value, EmptyPolicy::Empty()); }

    // Closes what is held and takes over another value. The last error stays as it was.
    void reset(Pointer value = EmptyPolicy::Empty()) noexcept
    {
        if (is_valid())
        {
            const DWORD lastError = GetLastError();
            c_close(m_value);
            SetLastError(lastError);
        }
        m_value = value;
    }

    // Where the value lies, as it is: for a function that changes it.
    Pointer* addressof() noexcept { return &m_value; }

    // Closes what is held and gives the place for a new value: for a function that brings one.
    Pointer* put() noexcept
    {
        reset();
        return &m_value;
    }
    Pointer* operator&() noexcept { return put(); }

    void swap(unique_any_t& other) noexcept { std::swap(m_value, other.m_value); }

    friend void swap(unique_any_t& left, unique_any_t& right) noexcept { left.swap(right); }
    friend bool operator==(const unique_any_t& left, const unique_any_t& right) noexcept
    {
        return left.m_value == right.m_value;
    }
    friend bool operator==(const unique_any_t& owner, std::nullptr_t) noexcept
        requires EmptyPolicy::c_takesNull
    {
        return !owner;
    }

private:
    Pointer m_value = EmptyPolicy::Empty();
};

// The usual owner: null stands for nothing.
template <class Pointer, class CloseFunction, CloseFunction c_close>
using unique_any = unique_any_t<Pointer, CloseFunction, c_close, details::NullIsEmpty<Pointer>>;

template <class CloseFunction, CloseFunction c_close>
using unique_any_handle_null = unique_any_t<HANDLE, CloseFunction, c_close, details::NullOrInvalidIsEmpty>;
template <class CloseFunction, CloseFunction c_close>
using unique_any_handle_invalid = unique_any_t<HANDLE, CloseFunction, c_close, details::InvalidOrNullIsEmpty>;

// Leave a lock that is held.
using rwlock_release_exclusive_scope_exit =
    unique_any<SRWLOCK*, decltype(&::ReleaseSRWLockExclusive), ::ReleaseSRWLockExclusive>;
using rwlock_release_shared_scope_exit =
    unique_any<SRWLOCK*, decltype(&::ReleaseSRWLockShared), ::ReleaseSRWLockShared>;

// A lock that one thread holds to write, or any number of threads to read.
class srwlock
{
public:
    srwlock() = default;
    srwlock(const srwlock&) = delete;
    srwlock& operator=(const srwlock&) = delete;

    // Wait until the lock is free; it is left when the result goes out of scope.
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

    // Takes the lock when it is free; the result is empty when it is not.
    [[nodiscard]] rwlock_release_exclusive_scope_exit try_lock_exclusive() noexcept
    {
        return rwlock_release_exclusive_scope_exit(::TryAcquireSRWLockExclusive(&m_lock) ? &m_lock : nullptr);
    }

private:
    SRWLOCK m_lock = SRWLOCK_INIT;
};

namespace details
{

// A device context together with what is needed to give it back.
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

// Holds one of them, for as long as it stays where it is; get() is the device context alone.
template <class Storage>
class unique_dc
{
public:
    explicit unique_dc(const Storage& value) noexcept : m_value(value) {}
    unique_dc(const unique_dc&) = delete;
    unique_dc& operator=(const unique_dc&) = delete;
    ~unique_dc()
    {
        if (is_valid())
        {
            const DWORD lastError = GetLastError();
            Storage::Close(m_value);
            SetLastError(lastError);
        }
    }

    HDC get() const noexcept { return m_value.dc; }
    bool is_valid() const noexcept { return m_value.dc != nullptr; }
    explicit operator bool() const noexcept { return is_valid(); }

private:
    Storage m_value;
};

} // namespace details

using unique_hdc_window = details::unique_dc<details::WindowDc>;
using unique_hdc_paint = details::unique_dc<details::PaintDc>;

// The device context of a window (null: of the screen); empty when there is none.
[[nodiscard]] inline unique_hdc_window GetDC(HWND window) noexcept
{
    return unique_hdc_window({::GetDC(window), window});
}

// Begins to paint a window; the painting ends when the result goes out of scope. Empty when it cannot begin. Fills
// `paint` in where it is given.
[[nodiscard]] inline unique_hdc_paint BeginPaint(HWND window, PAINTSTRUCT* paint = nullptr) noexcept
{
    details::PaintDc value{.dc = nullptr, .window = window, .paint = {}};
    value.dc = ::BeginPaint(window, &value.paint);
    if (paint != nullptr)
    {
        *paint = value.paint;
    }
    return unique_hdc_paint(value);
}

using unique_handle = unique_any_handle_null<decltype(&::CloseHandle), ::CloseHandle>;
using unique_hfile = unique_any_handle_invalid<decltype(&::CloseHandle), ::CloseHandle>;
using unique_hfind = unique_any_handle_invalid<decltype(&::FindClose), ::FindClose>;
using unique_tool_help_snapshot = unique_hfile;
// INVALID_HANDLE_VALUE is a process too: the calling one.
using unique_process_handle = unique_any<HANDLE, decltype(&::CloseHandle), ::CloseHandle>;
using unique_hglobal = unique_any<HGLOBAL, decltype(&::GlobalFree), ::GlobalFree>;
using unique_hwnd = unique_any<HWND, decltype(&::DestroyWindow), ::DestroyWindow>;
using unique_hkey = unique_any<HKEY, decltype(&::RegCloseKey), ::RegCloseKey>;
using unique_schandle = unique_any<SC_HANDLE, decltype(&::CloseServiceHandle), ::CloseServiceHandle>;
using unique_cotaskmem_string = unique_any<PWSTR, decltype(&::CoTaskMemFree), ::CoTaskMemFree>;
using unique_hlocal_string = unique_any<PWSTR, decltype(&::LocalFree), ::LocalFree>;
using unique_bstr = unique_any<BSTR, decltype(&::SysFreeString), ::SysFreeString>;

enum class EventOptions
{
    None = 0x0,
    ManualReset = 0x1, // stays signaled until it is reset, however many have waited for it
    Signaled = 0x2,    // from the start
};
DEFINE_ENUM_FLAG_OPERATORS(EventOptions)

// An event that is closed at the end.
class unique_event : public unique_handle
{
public:
    // Empty.
    unique_event() noexcept = default;

    // Takes the event over.
    explicit unique_event(HANDLE event) noexcept : unique_handle(event) {}

    // Makes a new event without a name. Throws ResultException with the last error.
    explicit(false) unique_event(EventOptions options) { create(options); }

    // The same, in place of what is held; a name lets others find the event.
    void create(EventOptions options = EventOptions::None, PCWSTR name = nullptr,
                SECURITY_ATTRIBUTES* security = nullptr)
    {
        const DWORD flags = (WI_IsFlagSet(options, EventOptions::ManualReset) ? CREATE_EVENT_MANUAL_RESET : 0UL) |
                            (WI_IsFlagSet(options, EventOptions::Signaled) ? CREATE_EVENT_INITIAL_SET : 0UL);
        unique_event event(::CreateEventExW(security, name, flags, EVENT_ALL_ACCESS));
        THROW_LAST_ERROR_IF_NULL(event.get());
        *this = std::move(event);
    }

    // These end the process when the event cannot be used, which nobody could go on from.
    void SetEvent() const noexcept { details::EndUnless(::SetEvent(get()) != FALSE); }
    void ResetEvent() const noexcept { details::EndUnless(::ResetEvent(get()) != FALSE); }

    // Waits until the event is signaled. Returns false when the time is over before.
    bool wait(DWORD milliseconds = INFINITE, BOOL alertable = FALSE) const noexcept
    {
        const DWORD status = ::WaitForSingleObjectEx(get(), milliseconds, alertable);
        details::EndUnless(status != WAIT_FAILED);
        return status == WAIT_OBJECT_0;
    }
    bool is_signaled() const noexcept { return wait(0); }
};

// Is a structure that one function prepares and another one empties at the end. Moved, never copied.
template <class Structure, class CloseFunction, CloseFunction c_close, class InitFunction, InitFunction c_init>
class unique_struct : public Structure
{
public:
    // Prepared, and nothing more.
    unique_struct() noexcept { c_init(this); }

    // Takes over what the structure holds.
    explicit unique_struct(const Structure& other) noexcept : Structure(other) {}
    unique_struct(unique_struct&& other) noexcept : Structure(other.release()) {}
    unique_struct(const unique_struct&) = delete;

    unique_struct& operator=(unique_struct&& other) noexcept
    {
        if (this != std::addressof(other))
        {
            reset(other.release());
        }
        return *this;
    }
    unique_struct& operator=(const unique_struct&) = delete;

    ~unique_struct() { Close(); }

    // The structure as it is: for a function that changes it.
    Structure* addressof() noexcept { return this; }

    // Empties the structure and gives it prepared: for a function that fills it.
    Structure* reset_and_addressof() noexcept
    {
        reset();
        return this;
    }

    // What the structure holds, now the caller's to empty.
    [[nodiscard]] Structure release() noexcept
    {
        const Structure value(*this);
        c_init(this);
        return value;
    }

    // Empties the structure; it then is as new, or takes over what another one holds.
    void reset() noexcept
    {
        Close();
        c_init(this);
    }
    void reset(const Structure& other) noexcept
    {
        Close();
        Structure::operator=(other);
    }
    void reset(const unique_struct&) = delete;

private:
    // The last error stays as it was.
    void Close() noexcept
    {
        const DWORD lastError = GetLastError();
        c_close(this);
        SetLastError(lastError);
    }
};

using unique_variant =
    unique_struct<VARIANT, decltype(&::VariantClear), ::VariantClear, decltype(&::VariantInit), ::VariantInit>;

// A copy of a text as COM wants it. Throws ResultException with E_OUTOFMEMORY.
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
