#pragma once

#include "support/ImportTableFake.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <set>

namespace Testing
{

// Made-up handles of a test: each is to be closed exactly once. Other handles are closed by Windows.
class OpenHandles
{
public:
    OpenHandles() = default;
    OpenHandles(const OpenHandles&) = delete;
    OpenHandles& operator=(const OpenHandles&) = delete;
    ~OpenHandles() { EXPECT_TRUE(m_open.empty()) << m_open.size() << " handles were not closed"; }

    // A new open handle.
    HANDLE Make()
    {
        m_last += 4;
        const HANDLE handle = reinterpret_cast<HANDLE>(m_last);
        m_open.insert(handle);
        return handle;
    }

    bool IsOpen(HANDLE handle) const { return m_open.contains(handle); }

    // Closing such a handle ends it, and then fails with that error.
    DWORD closeError = ERROR_SUCCESS;

private:
    static constexpr INT_PTR c_first = 0x7a000000;

    INT_PTR m_last = c_first;
    std::set<HANDLE> m_open;
    Fake<&CloseHandle> m_close = [this](HANDLE handle) -> BOOL {
        if (reinterpret_cast<INT_PTR>(handle) <= c_first || reinterpret_cast<INT_PTR>(handle) > m_last)
        {
            return decltype(m_close)::Real(handle);
        }
        EXPECT_EQ(m_open.erase(handle), 1U) << "closed twice";
        SetLastError(closeError);
        return closeError == ERROR_SUCCESS;
    };
};

} // namespace Testing
