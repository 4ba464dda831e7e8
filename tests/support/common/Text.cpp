#include "support/common/Text.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace Testing
{

std::string Narrow(std::wstring_view text)
{
    std::string narrow(text.size(), '?');
    std::ranges::transform(text, narrow.begin(),
                           [](wchar_t character) { return character < 0x80 ? static_cast<char>(character) : '?'; });
    return narrow;
}

std::string Hex(std::uint64_t number)
{
    std::array<char, 17> digits{};
    std::to_chars(digits.data(), digits.data() + digits.size(), number, 16);
    return digits.data();
}

} // namespace Testing
