#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Testing
{

// Text for lists of calls and for messages of failed tests; what is not ASCII becomes "?".
std::string Narrow(std::wstring_view text);

// A number in hexadecimal digits, without a prefix.
std::string Hex(std::uint64_t number);

} // namespace Testing
