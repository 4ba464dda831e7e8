#pragma once

namespace Benchmarks
{
// What crash reporting adds to a run: its start, and its end with and without something to send and somebody to take
// it.
void MeasureReports();
} // namespace Benchmarks
