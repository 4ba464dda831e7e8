#include "support/end_to_end/Names.h"

#include <windows.h>

#include <array>
#include <stdexcept>

namespace Testing
{
namespace
{
int CompareNames(std::wstring_view left, std::wstring_view right)
{
    return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                                static_cast<int>(right.size()), TRUE);
}
} // namespace

std::string ToUtf8(std::wstring_view text)
{
    const int length = static_cast<int>(text.size());
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), size, nullptr, nullptr);
    return result;
}

std::string ReplaceAll(std::string text, std::string_view what, std::string_view with)
{
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size()))
    {
        text.replace(at, what.size(), with);
    }
    return text;
}

bool SameName(std::wstring_view left, std::wstring_view right)
{
    return left.size() == right.size() && CompareNames(left, right) == CSTR_EQUAL;
}

bool IsAtOrBelow(std::wstring_view path, std::wstring_view top)
{
    if (!SameName(path.substr(0, top.size()), top))
    {
        return false;
    }
    const std::wstring_view rest = path.substr(top.size());
    return rest.empty() || rest.front() == L'\\' || rest.starts_with(c_valueSeparator);
}

bool NameOrder::operator()(std::wstring_view left, std::wstring_view right) const
{
    return CompareNames(left, right) == CSTR_LESS_THAN;
}

std::string SystemText(unsigned long error)
{
    std::array<wchar_t, 256> text{};
    FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, LANG_USER_DEFAULT,
                   text.data(), static_cast<DWORD>(text.size()), nullptr);
    return ReplaceAll(ToUtf8(text.data()), "\n", "");
}

void ThrowWindowsError(std::string_view what, unsigned long error)
{
    throw std::runtime_error(std::string(what) + ": error " + std::to_string(error) + ", " + SystemText(error));
}
} // namespace Testing
