#pragma once

#include <string>
#include <string_view>

// Text from outside, which need not be valid: names of files, messages of exceptions. What is not valid in it is
// replaced, so that nothing else of it gets lost.
namespace Installer
{

// UTF-16 to UTF-8. Zero characters are kept; half a surrogate pair becomes U+FFFD.
std::string EncodeUtf8(std::wstring_view text);

// What an exception says of itself, on one line: line breaks within it become blanks, those at its end go. The text is
// taken as UTF-8 when it is valid as such, and otherwise as text in the system's ANSI code page, in which messages of
// Windows reach an exception.
std::wstring WidenExceptionText(const char* text);

} // namespace Installer
