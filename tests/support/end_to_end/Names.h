// Names and texts as the end-to-end tests need them: compared as Windows compares names, converted for messages.
#pragma once

#include <string>
#include <string_view>

namespace Testing
{
// A wide text in UTF-8.
std::string ToUtf8(std::wstring_view text);

// The text with every occurrence of one part replaced by another.
std::string ReplaceAll(std::string text, std::string_view what, std::string_view with);

// Whether two names of files or registry keys are the same to Windows: without regard to letter case.
bool SameName(std::wstring_view left, std::wstring_view right);

// Stands between a registry key and the name of a value in it.
inline constexpr std::wstring_view c_valueSeparator = L" : ";

// Whether a path is the given one or lies below it. A registry value lies below its key.
bool IsAtOrBelow(std::wstring_view path, std::wstring_view top);

// The order of names without regard to letter case.
struct NameOrder
{
    using is_transparent = void;
    bool operator()(std::wstring_view left, std::wstring_view right) const;
};

// Windows' own text for an error number or HRESULT, as a log line carries it: without line feeds.
std::string SystemText(unsigned long error);

// A failed call as an exception: what was tried, the number and Windows' own text for it.
[[noreturn]] void ThrowWindowsError(std::string_view what, unsigned long error);
} // namespace Testing
