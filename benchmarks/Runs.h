#pragma once

namespace Benchmarks
{
// The program's start alone: to the first line of the log, and to the first frame.
void MeasureStarts();

// Whole runs of the program: to the first line of the log, to the first frame, with the product running, and what a
// line of the log takes.
void MeasureRuns();

// How long the whole run of an empty program takes, in milliseconds.
double TimeEmptyProgram();
} // namespace Benchmarks
