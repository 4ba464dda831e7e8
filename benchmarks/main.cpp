// Benchmarks [--starts | --long | --trees [flat | deep | wide]]: prints a table of how long things take, each compared
// with something in the same run; with --starts, the program's start only, with --long, trees of 100,000 files too,
// with --trees nothing but trees, of that shape only.
#include "Removal.h"
#include "Reports.h"
#include "Runs.h"
#include "Table.h"

#include <windows.h>

#include <cstdio>
#include <exception>
#include <string_view>

int wmain(int count, wchar_t** arguments)
try
{
    using namespace Benchmarks;
    // Where it was started from may be no folder of this Windows.
    SetCurrentDirectoryW(L"C:\\");
    const std::wstring_view how = count > 1 ? arguments[1] : L"";
    PrintHead();
    if (how == L"--starts")
    {
        MeasureStarts();
        return 0;
    }
    if (how != L"--trees")
    {
        MeasureRuns();
        MeasureReports();
    }
    MeasureRemoval(!how.empty(), count > 2 ? arguments[2] : L"");
    return 0;
}
catch (const std::exception& exception)
{
    std::fprintf(stderr, "Benchmarks: %s\n", exception.what());
    return 1;
}
