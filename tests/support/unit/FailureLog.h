#pragma once

#include <windows.h>

#include <gmock/gmock.h>
#include <wil/result.h>

#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Testing
{

// The failures that the result macros record while this lives: the source file's name without path and ending, and the
// code. One at a time.
class FailureLog
{
public:
    using Entry = std::pair<std::string, HRESULT>;

    FailureLog()
    {
        s_entries.clear();
        wil::SetResultLoggingCallback(&Record);
    }
    ~FailureLog() { wil::SetResultLoggingCallback(nullptr); }
    FailureLog(const FailureLog&) = delete;
    FailureLog& operator=(const FailureLog&) = delete;

    const std::vector<Entry>& Entries() const { return s_entries; }
    bool Contains(const std::string& source, HRESULT result) const
    {
        for (const Entry& entry : s_entries)
        {
            if (entry == Entry(source, result))
            {
                return true;
            }
        }
        return false;
    }

private:
    static void __stdcall Record(const wil::FailureInfo& failure) noexcept
    try
    {
        std::string_view file = failure.pszFile == nullptr ? "" : failure.pszFile;
        file.remove_prefix(file.find_last_of("\\/") + 1);
        s_entries.emplace_back(file.substr(0, file.find('.')), failure.hr);
    }
    catch (const std::bad_alloc&)
    {
        // A test that lets memory run out has to do without the record.
    }

    static inline std::vector<Entry> s_entries;
};

// Of a call that throws a failure of the result macros.
inline auto ThrowsResult(HRESULT result)
{
    return testing::Throws<wil::ResultException>(testing::Property(&wil::ResultException::GetErrorCode, result));
}

} // namespace Testing
