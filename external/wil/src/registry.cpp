#include "wil/registry.h"

#include <algorithm>
#include <cstddef>
#include <string>

namespace wil::reg
{

namespace
{

constexpr size_t c_firstLength = 260;

} // namespace

std::wstring get_value_string(HKEY key, PCWSTR value_name)
{
    std::wstring text(c_firstLength, L'\0');
    for (;;)
    {
        auto bytes = static_cast<DWORD>(text.size() * sizeof(wchar_t));
        const LSTATUS status =
            ::RegGetValueW(key, nullptr, value_name, RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, nullptr,
                           text.data(), &bytes);
        if (status != ERROR_MORE_DATA)
        {
            THROW_IF_WIN32_ERROR(status);
            text.resize(std::min(text.size(), bytes / sizeof(wchar_t)));
            // The size includes the terminator, and the value may have embedded nulls.
            text.resize(std::min(text.size(), text.find(L'\0')));
            return text;
        }
        // Always grow: the returned size may be stale or missing (performance data).
        text.assign(std::max(bytes / sizeof(wchar_t) + 1, text.size() * 2), L'\0');
    }
}

} // namespace wil::reg
