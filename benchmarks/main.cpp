// Benchmarks [--long]: prints a table of how long things take, each compared with something in the same run.
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
    PrintHead();
    MeasureRuns();
    MeasureReports();
    MeasureRemoval(count > 1 && std::wstring_view(arguments[1]) == L"--long");
    return 0;
}
catch (const std::exception& exception)
{
    std::fprintf(stderr, "Benchmarks: %s\n", exception.what());
    return 1;
}
