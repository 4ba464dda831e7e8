// The programs that were built together with this one.
#pragma once

#include <string>
#include <string_view>

namespace Testing
{
// The full path of a file that lies beside this program.
std::wstring BuiltFile(std::wstring_view name);
} // namespace Testing
