#pragma once

#include <string>
#include <string_view>

// Text encodings. The functions throw nothing but std::bad_alloc.
namespace Installer
{

// Strict, for text that is acted on, such as a path or a version: invalid text gives an empty string. Embedded nulls
// are kept.
std::wstring Utf8ToWide(std::string_view text);
std::string WideToUtf8(std::wstring_view text);

// Lenient, for text that is only shown, such as file names and exception messages: invalid code units are replaced.

// UTF-16 to UTF-8. Embedded nulls are kept; an unpaired surrogate becomes U+FFFD.
std::string EncodeUtf8(std::wstring_view text);

// UTF-16 to the ANSI code page. A character without an equivalent becomes the default character; there is no best fit.
std::string EncodeAnsi(std::wstring_view text);

// An exception's message on one line: trailing line breaks are removed, others become a space. Decoded as UTF-8 if
// valid, otherwise as the ANSI code page, the encoding of std::system_error's messages from Windows.
std::wstring WidenExceptionText(const char* text);

} // namespace Installer
