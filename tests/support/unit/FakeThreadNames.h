#pragma once

#include "support/common/ImportTableFake.h"

#include <windows.h>

#include <bit>
#include <functional>
#include <set>
#include <string_view>
#include <utility>

namespace Testing
{

// Windows' names for threads, for a program that looks the function up: it is in both libraries unless a test says
// otherwise. What else is looked up goes on to Windows.
class FakeThreadNames
{
public:
    using Body = std::function<HRESULT(HANDLE, PCWSTR)>;

    explicit FakeThreadNames(Body body) : m_body(std::move(body)), m_outer(std::exchange(s_current, this)) {}
    FakeThreadNames(const FakeThreadNames&) = delete;
    FakeThreadNames& operator=(const FakeThreadNames&) = delete;
    ~FakeThreadNames() { s_current = m_outer; }

    std::set<HMODULE> libraries{GetModuleHandleW(L"kernel32.dll"), GetModuleHandleW(L"kernelbase.dll")};

private:
    static HRESULT WINAPI SetDescription(HANDLE thread, PCWSTR description)
    {
        return s_current->m_body(thread, description);
    }

    Body m_body;
    FakeThreadNames* m_outer;
    static constinit inline FakeThreadNames* s_current = nullptr;

    Fake<&GetProcAddress> m_find = [this](HMODULE library, LPCSTR name) -> FARPROC {
        if (std::string_view(name) != "SetThreadDescription")
        {
            return m_find.Hidden(library, name);
        }
        if (!libraries.contains(library))
        {
            SetLastError(ERROR_PROC_NOT_FOUND);
            return nullptr;
        }
        return std::bit_cast<FARPROC>(&SetDescription);
    };
};

} // namespace Testing
