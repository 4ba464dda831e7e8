#pragma once

#include "support/common/ImportTableFake.h"

#include <windows.h>

namespace Testing
{

// A Windows with that ANSI code page. Conversions refuse what Windows refuses, whatever the system below them takes.
class FakeCodePage
{
public:
    explicit FakeCodePage(UINT page) : m_page(page) {}
    FakeCodePage(const FakeCodePage&) = delete;
    FakeCodePage& operator=(const FakeCodePage&) = delete;

private:
    UINT Resolve(UINT page) const { return page == CP_ACP ? m_page : page; }

    static int Fail(DWORD error)
    {
        SetLastError(error);
        return 0;
    }

    UINT m_page;
    Fake<&GetACP> m_getPage = [this] { return m_page; };
    Fake<&WideCharToMultiByte> m_narrow = [this](UINT page, DWORD flags, LPCWCH text, int length, LPSTR out, int size,
                                                 LPCCH replacement, LPBOOL used) -> int {
        const bool isUtf8 = Resolve(page) == CP_UTF8;
        // The only flag of UTF-8 is one that no other page has.
        const DWORD refused = isUtf8 ? ~static_cast<DWORD>(WC_ERR_INVALID_CHARS) : WC_ERR_INVALID_CHARS;
        if ((flags & refused) != 0)
        {
            return Fail(ERROR_INVALID_FLAGS);
        }
        if (isUtf8 && (replacement != nullptr || used != nullptr))
        {
            return Fail(ERROR_INVALID_PARAMETER);
        }
        return m_narrow.Hidden(Resolve(page), flags, text, length, out, size, replacement, used);
    };
    Fake<&MultiByteToWideChar> m_widen = [this](UINT page, DWORD flags, LPCCH text, int length, LPWSTR out,
                                                int size) -> int {
        if (Resolve(page) == CP_UTF8 && (flags & ~static_cast<DWORD>(MB_ERR_INVALID_CHARS)) != 0)
        {
            return Fail(ERROR_INVALID_FLAGS);
        }
        return m_widen.Hidden(Resolve(page), flags, text, length, out, size);
    };
};

} // namespace Testing
