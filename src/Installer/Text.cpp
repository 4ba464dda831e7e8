#include "Installer/Text.h"

#include <windows.h>

#include <cstddef>
#include <limits>
#include <string>
#include <string_view>

namespace Installer
{

namespace
{

constexpr wchar_t c_lineBreaks[] = L"\r\n";

// The length as Windows' int; 0 when it does not fit. Windows converts no text of length 0.
template <class Character>
int GetLength(std::basic_string_view<Character> text)
{
    return text.size() <= static_cast<std::size_t>(std::numeric_limits<int>::max()) ? static_cast<int>(text.size()) : 0;
}

bool IsValidUtf8(std::string_view text)
{
    const int length = GetLength(text);
    return length != 0 && MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), length, nullptr, 0) != 0;
}

bool IsValidUtf16(std::wstring_view text)
{
    const int length = GetLength(text);
    return length != 0 &&
           WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(), length, nullptr, 0, nullptr, nullptr) != 0;
}

// Both replace invalid code units. The result is empty on failure.

std::wstring Widen(UINT codePage, std::string_view text)
{
    const int textLength = GetLength(text);
    if (textLength == 0)
    {
        return {};
    }
    const int length = MultiByteToWideChar(codePage, 0, text.data(), textLength, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(codePage, 0, text.data(), textLength, wide.data(), length);
    return wide;
}

std::string Narrow(UINT codePage, DWORD flags, std::wstring_view text)
{
    const int textLength = GetLength(text);
    if (textLength == 0)
    {
        return {};
    }
    const int length = WideCharToMultiByte(codePage, flags, text.data(), textLength, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(codePage, flags, text.data(), textLength, narrow.data(), length, nullptr, nullptr);
    return narrow;
}

std::wstring JoinLines(std::wstring text)
{
    text.erase(text.find_last_not_of(c_lineBreaks) + 1);
    for (auto begin = text.find_first_of(c_lineBreaks); begin != std::wstring::npos;
         begin = text.find_first_of(c_lineBreaks, begin))
    {
        text.replace(begin, text.find_first_not_of(c_lineBreaks, begin) - begin, L" ");
    }
    return text;
}

} // namespace

std::wstring Utf8ToWide(std::string_view text)
{
    return IsValidUtf8(text) ? Widen(CP_UTF8, text) : std::wstring();
}

std::string WideToUtf8(std::wstring_view text)
{
    return IsValidUtf16(text) ? EncodeUtf8(text) : std::string();
}

std::string EncodeUtf8(std::wstring_view text)
{
    return Narrow(CP_UTF8, 0, text);
}

std::string EncodeAnsi(std::wstring_view text)
{
    // The flag is not allowed with CP_UTF8, which needs no best fit.
    return Narrow(CP_ACP, GetACP() == CP_UTF8 ? 0 : WC_NO_BEST_FIT_CHARS, text);
}

std::wstring WidenExceptionText(const char* text)
{
    return JoinLines(Widen(IsValidUtf8(text) ? CP_UTF8 : CP_ACP, text));
}

} // namespace Installer
