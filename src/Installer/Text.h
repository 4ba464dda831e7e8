#pragma once

#include <string>
#include <string_view>

// Conversions of text. None of them fails.
namespace Installer
{

// Strict, for text that is used: a path, a version. Text that is not valid gives an empty string, and is never taken
// for something that it does not say. Zero characters are kept.
std::wstring Utf8ToWide(std::string_view text);
std::string WideToUtf8(std::wstring_view text);

// Lenient, for text from outside that is only shown: names of files, messages of exceptions. What is not valid in it is
// replaced, so that nothing else of it gets lost.

// UTF-16 to UTF-8. Zero characters are kept; half a surrogate pair becomes U+FFFD.
std::string EncodeUtf8(std::wstring_view text);

// UTF-16 to the system's ANSI code page. A character that the code page does not have becomes its replacement
// character, never a similar one.
std::string EncodeAnsi(std::wstring_view text);

// What an exception says of itself, on one line: line breaks within it become blanks, those at its end go. The text is
// taken as UTF-8 when it is valid as such, and otherwise as text in the system's ANSI code page, in which messages of
// Windows reach an exception.
std::wstring WidenExceptionText(const char* text);

} // namespace Installer
