// The macros that check a call, record its failure with file and line, and return, log or throw it.
#pragma once

#include "common.h"

#include <exception>
#include <memory>
#include <string>

namespace wil
{

// What was done with a failure.
enum class FailureType
{
    Exception, // THROW_...
    Return,    // RETURN_..., CATCH_RETURN
    Log,       // LOG_..., CATCH_LOG
    FailFast,  // the process ends
};

// One failure. The texts live as long as the program, pszMessage only as long as the call that is given this.
struct FailureInfo
{
    FailureType type;
    HRESULT hr;               // always a failure
    PCWSTR pszMessage;        // more about it, or null
    DWORD threadId;           // the thread that met it
    PCSTR pszCode;            // the expression that failed, or null
    PCSTR pszFunction;        // the function that the macro stands in, or null
    PCSTR pszFile;            // the file that the macro stands in, or null
    unsigned int uLineNumber; // the line that it stands on
    int cFailureCount;        // counts the failures of this type
};

// Sets what is called at each failure, before the macro returns or throws; null: nothing. Not to be changed while other
// threads may fail.
void SetResultLoggingCallback(void(__stdcall* callback)(const FailureInfo& failure) noexcept) noexcept;

// The exception that the THROW_ macros throw.
class ResultException : public std::exception
{
public:
    // Copies all that the failure tells.
    explicit(false) ResultException(const FailureInfo& failure) noexcept;

    // The code: always a failure.
    HRESULT GetErrorCode() const noexcept { return m_failure.hr; }

    // Where and what it was; valid as long as this exception or a copy of it.
    const FailureInfo& GetFailureInfo() const noexcept { return m_failure; }

    // One line in UTF-8: file, line, what was done, thread, code, the system's text, expression. Never null.
    const char* what() const noexcept override;

private:
    FailureInfo m_failure;
    std::shared_ptr<const std::wstring> m_message;
    mutable std::shared_ptr<const std::string> m_what;
};

namespace details
{

// Where a macro stands, and the expression it was given.
struct Place
{
    PCSTR file;
    unsigned int line;
    PCSTR function;
    PCSTR code;
};

// The last error, or that of a failed assertion when there is none: a failed call that tells no reason is a failure.
DWORD LastErrorOfFailure() noexcept;

// Records a failure: gives it to the callback and, under a debugger, to the debugger. Returns its code, which is that
// of a failed assertion when a success was given. The last error stays as it was.
HRESULT Report(FailureType type, const Place& place, HRESULT hr, PCWSTR message = nullptr) noexcept;

// Records the failure and throws it.
[[noreturn]] void ReportAndThrow(const Place& place, HRESULT hr);

// Records the exception being handled and returns its code.
HRESULT ReportCaughtException(FailureType type, const Place& place) noexcept;

inline HRESULT ReturnHr(const Place& place, HRESULT hr) noexcept
{
    return FAILED(hr) ? Report(FailureType::Return, place, hr) : hr;
}

inline HRESULT ReturnWin32(const Place& place, DWORD error) noexcept
{
    return ReturnHr(place, HRESULT_FROM_WIN32(error));
}

// The last error, which stays the last error.
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

// Returns from the function, with an HRESULT, when the condition of the name holds.
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

// Records a failure and throws a ResultException; else the value is what was given.
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

// In place of a catch block: records the exception, with its text as the message, and returns its code or goes on.
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
