#pragma once

// gdiplus.h needs IStream, which WIN32_LEAN_AND_MEAN leaves out, and min and max, which NOMINMAX removes.
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
