// Reading the registry.
#pragma once

#include "result_macros.h"

#include <string>

namespace wil::reg
{

// The text of a REG_SZ or REG_EXPAND_SZ value, not expanded, up to its first embedded zero. Throws ResultException with
// the code of any failure, an absent key or value and a value of another type included.
std::wstring get_value_string(HKEY key, PCWSTR value_name);

} // namespace wil::reg
