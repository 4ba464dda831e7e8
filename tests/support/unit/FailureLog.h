#pragma once

#include "support/unit/RecordedFailures.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
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

    std::vector<Entry> Entries() const
    {
        std::vector<Entry> entries;
        for (const RecordedFailure& failure : m_failures.All())
        {
            entries.emplace_back(failure.file.substr(0, failure.file.find('.')), failure.hr);
        }
        return entries;
    }
    bool Contains(const std::string& source, HRESULT result) const
    {
        return std::ranges::count(Entries(), Entry(source, result)) != 0;
    }

private:
    RecordedFailures m_failures;
};

// Of a call that throws a failure of the result macros.
inline auto ThrowsResult(HRESULT result)
{
    return testing::Throws<wil::ResultException>(testing::Property(&wil::ResultException::GetErrorCode, result));
}

} // namespace Testing
