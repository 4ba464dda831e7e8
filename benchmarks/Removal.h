#pragma once

#include <string_view>

namespace Benchmarks
{
// The removal of trees of files, against `rmdir /s /q` and the standard library's: 1,000, 10,000 and 100,000 files, the
// last ones only when the run may take long. The shape: "flat", "deep" or "wide", or empty for all of them. Throws for
// any other.
void MeasureRemoval(bool isLong, std::wstring_view shape);
} // namespace Benchmarks
