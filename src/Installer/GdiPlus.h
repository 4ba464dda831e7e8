#pragma once

// GDI+ with what its header needs before it: the lean windows.h leaves out streams, and its classes call min and max.
// clang-format off
#include <windows.h>
#include <objidl.h>

#include <algorithm>

namespace Gdiplus
{
using std::max;
using std::min;
} // namespace Gdiplus

#include <gdiplus.h>
// clang-format on
