#include "Removal.h"

#include "Installer/Common.h"
#include "Table.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/Waiting.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Benchmarks
{
namespace
{
constexpr char c_name[] = "Benchmark";
constexpr wchar_t c_root[] = L"C:\\Benchmark";
constexpr int c_filesInFolder = 100;
constexpr int c_fewFiles = 1000;

// How the files of a tree lie.
enum class Shape
{
    Flat, // all in one folder
    Deep, // a hundred folders, each inside the one before
    Wide, // a hundred in each folder, all folders side by side
};

const char* NameOf(Shape shape)
{
    switch (shape)
    {
    case Shape::Flat:
        return "flat";
    case Shape::Deep:
        return "deep";
    case Shape::Wide:
        return "wide";
    }
    return "";
}

// A program of the system below Wine that makes a tree in no time, see there.
constexpr std::string_view c_makeTree = VELMORA_MAKE_TREE;

Testing::UniqueHandle Start(const wchar_t* program, std::wstring commandLine)
{
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(program, commandLine.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr,
                        &startup, &started))
    {
        throw std::runtime_error("A program cannot be started.");
    }
    CloseHandle(started.hThread);
    return Testing::UniqueHandle(started.hProcess);
}

// Returns false when this is no Wine.
bool MakeTreeBelowWine(Shape shape, int files)
{
    using GetUnixName = char*(CDECL*)(const wchar_t*);
    const auto getUnixName = reinterpret_cast<GetUnixName>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
    if (getUnixName == nullptr)
    {
        return false;
    }
    const std::string line = std::string("python3 \"") + std::string(c_makeTree) + "\" \"" + getUnixName(L"C:") + "/" +
                             c_name + "\" " + NameOf(shape) + " " + std::to_string(files);
    Start(LR"(\\?\unix\usr\bin\python3)", std::wstring(line.begin(), line.end()));
    if (!Testing::BecomesTrue([] { return std::filesystem::exists(c_root); }, std::chrono::minutes(5)))
    {
        throw std::runtime_error("There is no tree.");
    }
    return true;
}

void MakeFile(const std::wstring& path)
{
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        throw std::runtime_error("A file cannot be made.");
    }
    CloseHandle(file);
}

void MakeTree(Shape shape, int files)
{
    if (MakeTreeBelowWine(shape, files))
    {
        return;
    }
    const int perFolder = shape == Shape::Flat ? files : shape == Shape::Deep ? files / 100 : c_filesInFolder;
    std::wstring folder = c_root;
    CreateDirectoryW(folder.c_str(), nullptr);
    for (int made = 0, number = 0; made < files; ++number)
    {
        if (shape != Shape::Flat)
        {
            folder = shape == Shape::Deep ? folder + L"\\d" : std::wstring(c_root) + L"\\" + std::to_wstring(number);
            CreateDirectoryW(folder.c_str(), nullptr);
        }
        for (int i = 0; i < perFolder; ++i, ++made)
        {
            MakeFile(folder + L"\\file " + std::to_wstring(i) + L".dat");
        }
    }
}

// How long the removal of a tree takes, in milliseconds.
double TimeRemoval(Shape shape, int files, const std::function<void()>& remove)
{
    MakeTree(shape, files);
    const double taken = Time(remove).count();
    if (std::filesystem::exists(c_root))
    {
        throw std::runtime_error("The tree is still there.");
    }
    return taken;
}

// The same for what a command takes, less what starting the command processor does.
double TimeCommand(Shape shape, int files, const std::wstring& command)
{
    const auto run = [](const std::wstring& line) {
        WaitForSingleObject(Start(nullptr, L"cmd.exe /c " + line).get(), INFINITE);
    };
    const double start = Time([&] { run(L"exit"); }).count();
    return TimeRemoval(shape, files, [&] { run(command); }) - start;
}

void MeasureTree(Shape shape, int files, double& perFileOfFirst)
{
    // Making so many files takes a while each time.
    const int rounds = files > c_fewFiles ? 3 : 5;
    std::vector<double> own;
    std::vector<double> standard;
    std::vector<double> command;
    for (int round = 0; round < rounds; ++round)
    {
        own.push_back(TimeRemoval(shape, files, [] { Installer::RemoveFolder(c_root); }));
        standard.push_back(TimeRemoval(shape, files, [] { std::filesystem::remove_all(c_root); }));
        // Wine's takes the square of their number, and minutes for a deep tree.
        if (files == c_fewFiles && shape != Shape::Deep)
        {
            command.push_back(TimeCommand(shape, files, L"rmdir /s /q " + std::wstring(c_root)));
        }
    }
    const std::string what = "Removing " + std::to_string(files) + " files, " + NameOf(shape);
    PrintRow(what, Median(own), "ms", "`remove_all`", Median(standard), 0.75);
    if (!command.empty())
    {
        PrintRow(what, Median(own), "ms", "`rmdir /s /q`", Median(command), 0.75);
    }
    const double perFile = Median(own) * 1000 / files;
    if (perFileOfFirst > 0)
    {
        PrintRow("One file of " + std::to_string(files) + ", " + NameOf(shape), perFile, "µs", "one of 1000",
                 perFileOfFirst, 1.15);
    }
    else
    {
        perFileOfFirst = perFile;
    }
}
} // namespace

void MeasureRemoval(bool isLong, std::wstring_view shape)
{
    bool isMeasured = false;
    for (const Shape each : {Shape::Flat, Shape::Deep, Shape::Wide})
    {
        const std::string_view name = NameOf(each);
        if (!shape.empty() && !std::ranges::equal(shape, name))
        {
            continue;
        }
        double perFileOfFirst = 0;
        for (const int files : isLong ? std::vector{c_fewFiles, 10'000, 100'000} : std::vector{c_fewFiles, 10'000})
        {
            MeasureTree(each, files, perFileOfFirst);
        }
        isMeasured = true;
    }
    if (!isMeasured)
    {
        throw std::runtime_error("There is no such shape.");
    }
}
} // namespace Benchmarks
