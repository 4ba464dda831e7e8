#include "wil/result_macros.h"

#include <strsafe.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cwchar>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <string_view>

namespace wil
{

namespace
{

using Callback = void(__stdcall*)(const FailureInfo&) noexcept;

constexpr size_t c_lineCapacity = 2048;

std::atomic<Callback> g_callback;
std::array<std::atomic<int>, 4> g_failuresOfType;

PCWSTR TypeName(FailureType type) noexcept
{
    switch (type)
    {
    case FailureType::Exception:
        return L"Exception";
    case FailureType::Return:
        return L"ReturnHr";
    case FailureType::Log:
        return L"LogHr";
    case FailureType::FailFast:
        return L"FailFast";
    }
    return L"";
}

std::string ToUtf8(std::wstring_view text)
{
    const int length = static_cast<int>(text.size());
    std::string bytes(
        static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr)), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, bytes.data(), static_cast<int>(bytes.size()), nullptr,
                        nullptr);
    return bytes;
}

// The line that what() returns; truncated to the buffer.
std::array<wchar_t, c_lineCapacity> DescribeFailure(const FailureInfo& failure) noexcept
{
    std::array<wchar_t, 256> text{};
    DWORD length =
        FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                       static_cast<DWORD>(failure.hr), 0, text.data(), static_cast<DWORD>(text.size()), nullptr);
    while (length > 0 && text[length - 1] <= L' ')
    {
        text[--length] = L'\0';
    }

    std::array<wchar_t, c_lineCapacity> line{};
    PWSTR end = line.data();
    size_t capacity = line.size();
    const auto append = [&](PCWSTR format, auto... arguments) {
        StringCchPrintfExW(end, capacity, &end, &capacity, 0, format, arguments...);
    };
    if (failure.pszFile)
    {
        append(L"%hs(%u): ", failure.pszFile, failure.uLineNumber);
    }
    append(L"%ls(%d) tid(%lx) %08lX %ls", TypeName(failure.type), failure.cFailureCount, failure.threadId,
           static_cast<unsigned long>(failure.hr), text.data());
    if (failure.pszMessage)
    {
        append(L" Msg:[%ls]", failure.pszMessage);
    }
    if (failure.pszFunction)
    {
        append(L" [%hs(%hs)]", failure.pszFunction, failure.pszCode ? failure.pszCode : "");
    }
    return line;
}

// The current exception's code, and its description in `text`. S_OK for an exception of an unknown type.
HRESULT DescribeCaughtException(std::array<wchar_t, c_lineCapacity>& text) noexcept
{
    try
    {
        throw;
    }
    catch (const ResultException& exception)
    {
        text = DescribeFailure(exception.GetFailureInfo());
        return exception.GetErrorCode();
    }
    catch (const std::bad_alloc& exception)
    {
        StringCchPrintfW(text.data(), text.size(), L"std::exception: %hs", exception.what());
        return E_OUTOFMEMORY;
    }
    catch (const std::exception& exception)
    {
        StringCchPrintfW(text.data(), text.size(), L"std::exception: %hs", exception.what());
        return HRESULT_FROM_WIN32(ERROR_UNHANDLED_EXCEPTION);
    }
    catch (...)
    {
        return S_OK;
    }
}

FailureInfo MakeFailure(FailureType type, const details::Place& place, HRESULT hr, PCWSTR message) noexcept
{
    return {.type = type,
            .hr = FAILED(hr) ? hr : HRESULT_FROM_WIN32(ERROR_ASSERTION_FAILURE),
            .pszMessage = message,
            .threadId = GetCurrentThreadId(),
            .pszCode = place.code,
            .pszFunction = place.function,
            .pszFile = place.file,
            .uLineNumber = place.line,
            .cFailureCount = ++g_failuresOfType[static_cast<size_t>(type)]};
}

// Calls the callback, and writes to an attached debugger. Preserves the last error.
void Notify(const FailureInfo& failure) noexcept
{
    const DWORD lastError = GetLastError();
    if (const Callback callback = g_callback)
    {
        callback(failure);
    }
    if (IsDebuggerPresent())
    {
        std::array<wchar_t, c_lineCapacity> line = DescribeFailure(failure);
        const size_t length = std::min(std::wcslen(line.data()), line.size() - 2);
        line[length] = L'\n';
        line[length + 1] = L'\0';
        OutputDebugStringW(line.data());
    }
    SetLastError(lastError);
}

// An exception of an unknown type is a bug in the program: end the process.
HRESULT FailFast(const details::Place& place) noexcept
{
    constexpr HRESULT c_result = HRESULT_FROM_WIN32(ERROR_UNHANDLED_EXCEPTION);
    Notify(MakeFailure(FailureType::FailFast, place, c_result, nullptr));
    RaiseFailFastException(nullptr, nullptr, FAIL_FAST_GENERATE_EXCEPTION_ADDRESS);
    return c_result;
}

} // namespace

void SetResultLoggingCallback(Callback callback) noexcept
{
    g_callback = callback;
}

ResultException::ResultException(const FailureInfo& failure) noexcept : m_failure(failure)
{
    m_failure.pszMessage = nullptr;
    if (failure.pszMessage)
    {
        try
        {
            m_message = std::make_shared<const std::wstring>(failure.pszMessage);
            m_failure.pszMessage = m_message->c_str();
        }
        catch (const std::bad_alloc&)
        {
            // The exception goes without its message.
        }
    }
}

const char* ResultException::what() const noexcept
{
    try
    {
        if (!m_what)
        {
            m_what = std::make_shared<const std::string>(ToUtf8(DescribeFailure(m_failure).data()));
        }
        return m_what->c_str();
    }
    catch (const std::bad_alloc&)
    {
        return "A failure, and no memory left to tell which";
    }
}

namespace details
{

DWORD LastErrorOfFailure() noexcept
{
    const DWORD error = GetLastError();
    return error != ERROR_SUCCESS ? error : ERROR_ASSERTION_FAILURE;
}

HRESULT Report(FailureType type, const Place& place, HRESULT hr, PCWSTR message) noexcept
{
    const FailureInfo failure = MakeFailure(type, place, hr, message);
    Notify(failure);
    return failure.hr;
}

void ReportAndThrow(const Place& place, HRESULT hr)
{
    const FailureInfo failure = MakeFailure(FailureType::Exception, place, hr, nullptr);
    Notify(failure);
    throw ResultException(failure);
}

HRESULT ReportCaughtException(FailureType type, const Place& place) noexcept
{
    std::array<wchar_t, c_lineCapacity> text{};
    const HRESULT hr = DescribeCaughtException(text);
    return FAILED(hr) ? Report(type, place, hr, text.data()) : FailFast(place);
}

} // namespace details
} // namespace wil
