#pragma once

namespace Benchmarks
{
// The removal of trees of files, against `rmdir /s /q` and the standard library's: 1,000, 10,000 and 100,000 files, the
// last ones only when the run may take long.
void MeasureRemoval(bool isLong);
} // namespace Benchmarks
