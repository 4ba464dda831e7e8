// Macros that check a call's result and record a failure with file and line; then they return, log or throw it.
#pragma once

#include "common.h"

#include <exception>
#include <memory>
#include <string>

namespace wil
{

// How a failure is handled.
enum class FailureType
{
    Exception, // THROW_...
    Return,    // RETURN_..., CATCH_RETURN
    Log,       // LOG_..., CATCH_LOG
    FailFast,  // the process ends
};

// A recorded failure. The strings are static, except pszMessage, which is valid during the callback only.
struct FailureInfo
{
    FailureType type;
    HRESULT hr;               // always a failure
    PCWSTR pszMessage;        // details, or null
    DWORD threadId;           // the failing thread
    PCSTR pszCode;            // the failed expression, or null
    PCSTR pszFunction;        // the macro's function, or null
    PCSTR pszFile;            // the macro's file, or null
    unsigned int uLineNumber; // the macro's line
    int cFailureCount;        // the number of failures of this type, this one included
};

// Sets the callback that is called for each failure before the macro returns or throws; null: none. Not to be called
// while other threads may record failures.
void SetResultLoggingCallback(void(__stdcall* callback)(const FailureInfo& failure) noexcept) noexcept;

// The exception that the THROW_ macros throw.
class ResultException : public std::exception
{
public:
    // Copies the failure and its message.
    explicit(false) ResultException(const FailureInfo& failure) noexcept;

    // Always a failure code.
    HRESULT GetErrorCode() const noexcept { return m_failure.hr; }

    // Valid while this exception or a copy of it exists.
    const FailureInfo& GetFailureInfo() const noexcept { return m_failure; }

    // One line of UTF-8: file, line, failure type, thread, code, the system's message, expression. Never null.
    const char* what() const noexcept override;

private:
    FailureInfo m_failure;
    std::shared_ptr<const std::wstring> m_message;
    mutable std::shared_ptr<const std::string> m_what;
};

namespace details
{

// A macro's location and its expression.
struct Place
{
    PCSTR file;
    unsigned int line;
    PCSTR function;
    PCSTR code;
};

// GetLastError(), or ERROR_ASSERTION_FAILURE if a failed call set no error.
DWORD LastErrorOfFailure() noexcept;

// Passes a failure to the callback and to an attached debugger. Returns `hr`, or ERROR_ASSERTION_FAILURE as HRESULT if
// `hr` is a success code. Preserves the last error.
HRESULT Report(FailureType type, const Place& place, HRESULT hr, PCWSTR message = nullptr) noexcept;

// Records the failure and throws it.
[[noreturn]] void ReportAndThrow(const Place& place, HRESULT hr);

// Records the current exception and returns its code.
HRESULT ReportCaughtException(FailureType type, const Place& place) noexcept;

inline HRESULT ReturnHr(const Place& place, HRESULT hr) noexcept
{
    return FAILED(hr) ? Report(FailureType::Return, place, hr) : hr;
}

inline HRESULT ReturnWin32(const Place& place, DWORD error) noexcept
{
    return ReturnHr(place, HRESULT_FROM_WIN32(error));
}

// Preserves the last error.
inline HRESULT ReturnLastError(const Place& place) noexcept
{
    return Report(FailureType::Return, place, HRESULT_FROM_WIN32(LastErrorOfFailure()));
}

inline HRESULT ThrowIfFailed(const Place& place, HRESULT hr)
{
    if (FAILED(hr))
    {
        ReportAndThrow(place, hr);
    }
    return hr;
}

inline bool ThrowHrIf(const Place& place, HRESULT hr, bool condition)
{
    if (condition)
    {
        ReportAndThrow(place, hr);
    }
    return condition;
}

inline DWORD ThrowIfWin32Error(const Place& place, DWORD error)
{
    ThrowIfFailed(place, HRESULT_FROM_WIN32(error));
    return error;
}

inline bool ThrowLastErrorIf(const Place& place, bool condition)
{
    return ThrowHrIf(place, condition ? HRESULT_FROM_WIN32(LastErrorOfFailure()) : S_OK, condition);
}

inline BOOL ThrowIfWin32BoolFalse(const Place& place, BOOL result)
{
    ThrowLastErrorIf(place, !result);
    return result;
}

} // namespace details
} // namespace wil

#define WIL_DETAILS_PLACE(code)                                                                                        \
    ::wil::details::Place                                                                                              \
    {                                                                                                                  \
        __FILE__, __LINE__, __func__, code                                                                             \
    }

// Record a failure and return its HRESULT from the function.
#define RETURN_IF_FAILED(hr)                                                                                           \
    do                                                                                                                 \
    {                                                                                                                  \
        if (const HRESULT wilResult = ::wil::verify_hresult(hr); FAILED(wilResult))                                    \
        {                                                                                                              \
            return ::wil::details::ReturnHr(WIL_DETAILS_PLACE(#hr), wilResult);                                        \
        }                                                                                                              \
    } while (false)
#define RETURN_IF_WIN32_ERROR(win32err)                                                                                \
    do                                                                                                                 \
    {                                                                                                                  \
        if (const DWORD wilError = ::wil::verify_win32(win32err); wilError != ERROR_SUCCESS)                           \
        {                                                                                                              \
            return ::wil::details::ReturnWin32(WIL_DETAILS_PLACE(#win32err), wilError);                                \
        }                                                                                                              \
    } while (false)
#define WIL_DETAILS_RETURN_IF(condition, failure)                                                                      \
    do                                                                                                                 \
    {                                                                                                                  \
        if (condition)                                                                                                 \
        {                                                                                                              \
            return failure;                                                                                            \
        }                                                                                                              \
    } while (false)
#define RETURN_HR_IF(hr, condition)                                                                                    \
    WIL_DETAILS_RETURN_IF(::wil::verify_bool(condition),                                                               \
                          ::wil::details::ReturnHr(WIL_DETAILS_PLACE(#condition), ::wil::verify_hresult(hr)))
#define RETURN_IF_NULL_ALLOC(ptr)                                                                                      \
    WIL_DETAILS_RETURN_IF((ptr) == nullptr, ::wil::details::ReturnHr(WIL_DETAILS_PLACE(#ptr), E_OUTOFMEMORY))
#define RETURN_LAST_ERROR_IF(condition)                                                                                \
    WIL_DETAILS_RETURN_IF(::wil::verify_bool(condition), ::wil::details::ReturnLastError(WIL_DETAILS_PLACE(#condition)))
#define RETURN_LAST_ERROR_IF_NULL(ptr)                                                                                 \
    WIL_DETAILS_RETURN_IF((ptr) == nullptr, ::wil::details::ReturnLastError(WIL_DETAILS_PLACE(#ptr)))
#define RETURN_IF_WIN32_BOOL_FALSE(win32BOOL)                                                                          \
    WIL_DETAILS_RETURN_IF(!::wil::verify_BOOL(win32BOOL),                                                              \
                          ::wil::details::ReturnLastError(WIL_DETAILS_PLACE(#win32BOOL)))

// Record a failure and throw a ResultException; otherwise the value is the argument's.
#define THROW_IF_FAILED(hr) ::wil::details::ThrowIfFailed(WIL_DETAILS_PLACE(#hr), ::wil::verify_hresult(hr))
#define THROW_HR_IF(hr, condition)                                                                                     \
    ::wil::details::ThrowHrIf(WIL_DETAILS_PLACE(#condition), ::wil::verify_hresult(hr), ::wil::verify_bool(condition))
#define THROW_IF_WIN32_ERROR(win32err)                                                                                 \
    ::wil::details::ThrowIfWin32Error(WIL_DETAILS_PLACE(#win32err), ::wil::verify_win32(win32err))
#define THROW_IF_WIN32_BOOL_FALSE(win32BOOL)                                                                           \
    ::wil::details::ThrowIfWin32BoolFalse(WIL_DETAILS_PLACE(#win32BOOL), ::wil::verify_BOOL(win32BOOL))
#define THROW_LAST_ERROR_IF(condition)                                                                                 \
    ::wil::details::ThrowLastErrorIf(WIL_DETAILS_PLACE(#condition), ::wil::verify_bool(condition))
#define THROW_IF_NULL_ALLOC(ptr) ::wil::details::ThrowHrIf(WIL_DETAILS_PLACE(#ptr), E_OUTOFMEMORY, (ptr) == nullptr)

// Function-level catch blocks: record the exception, with its what() as the message, and return its code or continue.
#define CATCH_RETURN()                                                                                                 \
    catch (...)                                                                                                        \
    {                                                                                                                  \
        return ::wil::details::ReportCaughtException(::wil::FailureType::Return, WIL_DETAILS_PLACE(nullptr));          \
    }
#define CATCH_LOG()                                                                                                    \
    catch (...)                                                                                                        \
    {                                                                                                                  \
        ::wil::details::ReportCaughtException(::wil::FailureType::Log, WIL_DETAILS_PLACE(nullptr));                    \
    }
