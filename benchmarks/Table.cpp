#include "Table.h"

#include <algorithm>
#include <cstdio>

namespace Benchmarks
{
Milliseconds Time(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::steady_clock::now() - start;
}

double Median(std::vector<double> values)
{
    std::ranges::sort(values);
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

void PrintHead()
{
    std::printf("| What | Measured | Compared with | | Ratio | Wanted |\n| --- | ---: | --- | ---: | ---: | ---: |\n");
}

void PrintRow(const std::string& what, double measured, const std::string& unit, const std::string& comparedWith,
              double baseline, double wanted)
{
    const double ratio = measured / baseline;
    std::printf("| %s | %.1f %s | %s | %.1f %s | %.2f | %.2f%s |\n", what.c_str(), measured, unit.c_str(),
                comparedWith.c_str(), baseline, unit.c_str(), ratio, wanted, ratio <= wanted ? "" : ": missed");
    std::fflush(stdout);
}
} // namespace Benchmarks
