// Reading the registry.
#pragma once

#include "result_macros.h"

#include <string>

namespace wil::reg
{

// Reads a REG_SZ or REG_EXPAND_SZ value, unexpanded, up to its first null. Throws ResultException on failure, also for
// a missing value (ERROR_FILE_NOT_FOUND) or another type (ERROR_UNSUPPORTED_TYPE).
std::wstring get_value_string(HKEY key, PCWSTR value_name);

} // namespace wil::reg
