#include "Runs.h"

#include "Installer/Logger.h"
#include "Table.h"
#include "support/end_to_end/BuiltFiles.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/RunProgram.h"
#include "support/end_to_end/RunningProduct.h"
#include "support/end_to_end/SampleInstallation.h"
#include "support/end_to_end/StatusWindowLayout.h"

#include <windows.h>

#include <psapi.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace Benchmarks
{
namespace
{
using namespace Testing;

constexpr int c_rounds = 9;
constexpr int c_lines = 1000;
constexpr wchar_t c_program[] = L"Velmora.Uninstaller.exe";

// What a run pauses for by design when a client and two services obey at once: before it starts; until the client has
// gone; until a service has stopped, after that, and after its deletion.
constexpr double c_prescribedPauses = 200 + 1000 + 2 * (500 + 1000 + 5000);

struct Started
{
    UniqueHandle process;
    UniqueHandle thread;
};

Started Start(const std::wstring& program, const std::wstring& argument = {})
{
    std::wstring line = L'"' + program + L"\" " + argument;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started))
    {
        throw std::runtime_error("A program cannot be started.");
    }
    return {UniqueHandle(started.hProcess), UniqueHandle(started.hThread)};
}

void End(const Started& started)
{
    TerminateProcess(started.process.get(), 0);
    WaitForSingleObject(started.process.get(), INFINITE);
}

bool HasLog(const std::wstring& folder)
{
    WIN32_FIND_DATAW found{};
    const HANDLE search = FindFirstFileW((folder + L"Uninstaller_*.log").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
    {
        return false;
    }
    FindClose(search);
    return found.nFileSizeLow != 0;
}

double TimeToFirstLine()
{
    const std::wstring folder = LogFolderIn(TemporaryFolder());
    std::filesystem::remove_all(folder);
    Started started;
    const double taken = Time([&] {
                             started = Start(BuiltFile(c_program), L"-s");
                             while (!HasLog(folder))
                             {
                                 Sleep(1); // not 0: that would take the processor from what is measured
                             }
                         }).count();
    End(started);
    std::filesystem::remove_all(folder);
    return taken;
}

// Until the window has that colour where the status window has the track of its progress.
double TimeToFirstFrame(const std::wstring& program, unsigned colour)
{
    const StatusWindowLayout layout(96);
    const RECT place = layout.WindowOn(GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN));
    const HDC screen = GetDC(nullptr);
    const COLORREF wanted = RGB(colour >> 16 & 0xFF, colour >> 8 & 0xFF, colour & 0xFF);
    Started started;
    const double taken =
        Time([&] {
            started = Start(BuiltFile(program));
            while (GetPixel(screen, place.left + 100, place.top + static_cast<LONG>(layout.track.top) + 2) != wanted)
            {
                Sleep(1); // not 0: that would take the processor from what is measured
            }
        }).count();
    ReleaseDC(nullptr, screen);
    End(started);
    std::filesystem::remove_all(LogFolderIn(TemporaryFolder()));
    return taken;
}

// The most memory that a process has had to itself, in KiB.
double PeakOf(const std::wstring& program, const std::wstring& argument)
{
    const Started started = Start(program, argument);
    double peak = 0;
    while (WaitForSingleObject(started.process.get(), 1) == WAIT_TIMEOUT)
    {
        PROCESS_MEMORY_COUNTERS counters{};
        if (GetProcessMemoryInfo(started.process.get(), &counters, sizeof(counters)))
        {
            peak = std::max(peak, static_cast<double>(counters.PeakWorkingSetSize) / 1024);
        }
    }
    return peak;
}

void MeasureMemory()
{
    LayDownSample();
    const std::wstring program = Expand(L"<Downloads>") + L"\\" + c_program;
    CopyFileW(BuiltFile(c_program).c_str(), program.c_str(), FALSE);
    PrintRow("Memory at its peak in a silent run", PeakOf(program, L"-s"), "KiB", "that of an empty program",
             PeakOf(BuiltFile(L"Empty.exe"), {}), 4);
    RemoveSample();
}

void MeasureWholeRun()
{
    std::vector<double> taken;
    for (int round = 0; round < 3; ++round)
    {
        LayDownSample();
        const std::wstring program = Expand(L"<Downloads>") + L"\\" + c_program;
        CopyFileW(BuiltFile(c_program).c_str(), program.c_str(), FALSE);
        {
            SampleService updater(c_updaterService, ServiceMode::Obeys);
            SampleService auth(c_authService, ServiceMode::Obeys);
            updater.Start();
            auth.Start();
            const SampleClient client(InstallFolder() + L"\\current\\Velmora.exe", ClientMode::Closes);
            const RunResult result = RunProgram(program, L"-s");
            if (result.exitCode != 0)
            {
                throw std::runtime_error("The run ended with " + std::to_string(result.exitCode) + ":\n" + result.log);
            }
            taken.push_back(static_cast<double>(result.duration.count()));
        }
        RemoveSample();
    }
    PrintRow("Silent run of the running product", Median(taken), "ms", "its prescribed pauses", c_prescribedPauses,
             1.05);
}

void MeasureLog()
{
    constexpr wchar_t c_file[] = L"C:\\Benchmark.log";
    constexpr char c_line[] = "|INFO|:    Deleting installation folder...\r\n";
    std::vector<double> own;
    std::vector<double> plain;
    for (int round = 0; round < c_rounds; ++round)
    {
        Installer::Logger logger(Installer::RunType::Silent);
        own.push_back(Time([&] {
                          for (int i = 0; i < c_lines; ++i)
                          {
                              logger.Info(L"Deleting installation folder...");
                          }
                      }).count());
        DeleteFileW(logger.LogPath().c_str());
        plain.push_back(Time([&] {
                            for (int i = 0; i < c_lines; ++i)
                            {
                                const HANDLE file = CreateFileW(c_file, FILE_APPEND_DATA, FILE_SHARE_READ, nullptr,
                                                                OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
                                DWORD written = 0;
                                WriteFile(file, c_line, sizeof(c_line) - 1, &written, nullptr);
                                CloseHandle(file);
                            }
                        }).count());
        DeleteFileW(c_file);
    }
    PrintRow("A line of the log", Median(own) * 1000 / c_lines, "µs", "opening, appending, closing",
             Median(plain) * 1000 / c_lines, 1.5);
}
} // namespace

double TimeEmptyProgram()
{
    return Time([] { WaitForSingleObject(Start(BuiltFile(L"Empty.exe")).process.get(), INFINITE); }).count();
}

void MeasureStarts()
{
    std::vector<double> empty;
    std::vector<double> line;
    std::vector<double> emptyFrame;
    std::vector<double> frame;
    for (int round = 0; round < c_rounds; ++round)
    {
        empty.push_back(TimeEmptyProgram());
        line.push_back(TimeToFirstLine());
        emptyFrame.push_back(TimeToFirstFrame(L"EmptyWindow.exe", c_backgroundColour));
        frame.push_back(TimeToFirstFrame(c_program, c_trackColour));
    }
    PrintRow("Start to first log line", Median(line), "ms", "an empty program's whole run", Median(empty), 2.5);
    PrintRow("Start to first frame", Median(frame), "ms", "an empty window with a logo", Median(emptyFrame), 1.3);
}

void MeasureRuns()
{
    MeasureStarts();
    MeasureMemory();
    MeasureLog();
    MeasureWholeRun();
    std::error_code none;
    PrintRow("The program's file", static_cast<double>(std::filesystem::file_size(BuiltFile(c_program), none)) / 1024,
             "KiB", "1 MB", 1024, 1);
}
} // namespace Benchmarks
