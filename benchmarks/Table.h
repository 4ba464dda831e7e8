#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace Benchmarks
{
using Milliseconds = std::chrono::duration<double, std::milli>;

// How long something takes.
Milliseconds Time(const std::function<void()>& work);

// The middle one; of an even number, the mean of the two in the middle.
double Median(std::vector<double> values);

// Prints one row: what was measured, in which unit, what it is compared with, the ratio of the two, and the largest
// ratio that is wanted.
void PrintHead();
void PrintRow(const std::string& what, double measured, const std::string& unit, const std::string& comparedWith,
              double baseline, double wanted);
} // namespace Benchmarks
