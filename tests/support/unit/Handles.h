#pragma once

#include "support/common/ImportTableFake.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <any>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Testing
{

// The handles that fakes give out, of every kind. Each has a name for the journal, an object that belongs to it and
// goes with it, and one function that closes it; not closing it, closing it twice or with another function fails the
// test. Handles of Windows' own pass through to Windows.
class Handles
{
public:
    // No real handle is as large as the first one; two tables of one test begin at different ones.
    explicit Handles(Journal& journal, ULONG_PTR first = 0x5A000000) : m_journal(journal), m_first(first), m_last(first)
    {}
    Handles(const Handles&) = delete;
    Handles& operator=(const Handles&) = delete;
    ~Handles() { EXPECT_EQ(AllOpen(), std::vector<std::string>()) << "not closed"; }

    template <class Object>
    HANDLE Make(const std::string& name, Object object, const char* closer = "CloseHandle")
    {
        m_last += 4;
        const auto handle = reinterpret_cast<HANDLE>(m_last);
        m_open.emplace(handle, Open{name, closer, std::move(object)});
        return handle;
    }

    // A handle to something of which only the name matters.
    HANDLE Make(const std::string& name) { return Make(name, 0); }

    // The object of an open handle. Null, with the last error, for a handle that is closed or of another kind.
    template <class Object>
    Object* Find(HANDLE handle)
    {
        const auto open = m_open.find(handle);
        auto* const object = open == m_open.end() ? nullptr : std::any_cast<Object>(&open->second.object);
        if (object == nullptr)
        {
            SetLastError(ERROR_INVALID_HANDLE);
        }
        return object;
    }

    // For the journal.
    std::string NameOf(HANDLE handle) const
    {
        const auto open = m_open.find(handle);
        return open == m_open.end() ? m_journal.NameOf(handle) : open->second.name;
    }

    bool IsOpen(HANDLE handle) const { return m_open.contains(handle); }
    bool IsOwn(HANDLE handle) const
    {
        const auto value = reinterpret_cast<ULONG_PTR>(handle);
        return value > m_first && value <= m_last;
    }

    // The names of those that are open now.
    std::vector<std::string> AllOpen() const
    {
        std::vector<std::string> names;
        for (const auto& [handle, open] : m_open)
        {
            names.push_back(open.name);
        }
        return names;
    }

    // What the closing function does: notes "closer(name)". Returns whether it succeeds, otherwise the last error is
    // set; a failure that a test plans for it leaves the handle closed.
    bool Close(HANDLE handle, const std::string& closer)
    {
        auto open = m_open.extract(handle);
        if (open.empty() || open.mapped().closer != closer)
        {
            ADD_FAILURE() << closer << (open.empty() ? " of what is not open" : " of a " + open.mapped().name);
            SetLastError(ERROR_INVALID_HANDLE);
            return false;
        }
        const DWORD error = m_journal.Add(closer, open.mapped().name);
        SetLastError(error);
        return error == ERROR_SUCCESS;
    }

private:
    struct Open
    {
        std::string name;
        std::string closer;
        std::any object;
    };

    Journal& m_journal;
    ULONG_PTR m_first;
    ULONG_PTR m_last;
    std::map<HANDLE, Open> m_open;
    Fake<&CloseHandle> m_close = [this](HANDLE handle) -> BOOL {
        return IsOwn(handle) ? Close(handle, "CloseHandle") : m_close.Hidden(handle);
    };
};

} // namespace Testing
