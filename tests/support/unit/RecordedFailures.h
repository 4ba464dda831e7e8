#pragma once

#include <windows.h>

#include <wil/result.h>

#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{

// The code of the exception that a function throws; S_OK when it throws nothing.
template <class Function>
HRESULT CodeThrownBy(Function function)
{
    try
    {
        function();
        return S_OK;
    }
    catch (const wil::ResultException& exception)
    {
        return exception.GetErrorCode();
    }
}

// A failure that a macro recorded.
struct RecordedFailure
{
    wil::FailureType type;
    HRESULT hr;
    unsigned int line;
    std::string file; // without its folder
    std::wstring message;
    DWORD thread;
};

// All failures that the macros record while this lives. One at a time.
class RecordedFailures
{
public:
    RecordedFailures()
    {
        s_failures.clear();
        wil::SetResultLoggingCallback(&Record);
    }
    ~RecordedFailures() { wil::SetResultLoggingCallback(nullptr); }
    RecordedFailures(const RecordedFailures&) = delete;
    RecordedFailures& operator=(const RecordedFailures&) = delete;

    size_t Count() const { return s_failures.size(); }
    const RecordedFailure& Last() const { return s_failures.back(); }
    const std::vector<RecordedFailure>& All() const { return s_failures; }

private:
    static void __stdcall Record(const wil::FailureInfo& failure) noexcept
    {
        try
        {
            std::string_view file = failure.pszFile ? failure.pszFile : "";
            file.remove_prefix(file.find_last_of("\\/") + 1);
            s_failures.push_back({failure.type, failure.hr, failure.uLineNumber, std::string(file),
                                  failure.pszMessage ? failure.pszMessage : L"", failure.threadId});
        }
        catch (const std::bad_alloc&)
        {
            // A test that lets memory run out has to do without the record.
        }
        // What a callback does must not reach the caller of the macro.
        SetLastError(ERROR_BAD_COMMAND);
    }

    static inline std::vector<RecordedFailure> s_failures;
};

} // namespace Testing
