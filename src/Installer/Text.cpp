#include "Installer/Text.h"

#include "Installer/Common.h"

#include <windows.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace Installer
{

namespace
{

constexpr wchar_t c_lineBreaks[] = L"\r\n";

std::wstring WidenAnsi(std::string_view text)
{
    const int textLength = static_cast<int>(text.size());
    const int length = MultiByteToWideChar(CP_ACP, 0, text.data(), textLength, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text.data(), textLength, wide.data(), length);
    return wide;
}

std::wstring PutOnOneLine(std::wstring text)
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

std::string EncodeUtf8(std::wstring_view text)
{
    const int textLength = static_cast<int>(text.size());
    const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), textLength, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), textLength, utf8.data(), length, nullptr, nullptr);
    return utf8;
}

std::wstring WidenExceptionText(const char* text)
{
    const std::wstring wide = Utf8ToWide(text); // empty when it is not valid
    return PutOnOneLine(wide.empty() ? WidenAnsi(text) : wide);
}

} // namespace Installer
