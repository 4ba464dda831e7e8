#include "Removal.h"

#include "Installer/Common.h"
#include "Table.h"

#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace Benchmarks
{
namespace
{
constexpr wchar_t c_root[] = L"C:\\Benchmark";
constexpr int c_filesInFolder = 100;

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

void RunCommand(const std::wstring& command)
{
    std::wstring line = L"cmd.exe /c " + command;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &startup,
                        &started))
    {
        throw std::runtime_error("cmd.exe cannot be started.");
    }
    WaitForSingleObject(started.hProcess, INFINITE);
    CloseHandle(started.hThread);
    CloseHandle(started.hProcess);
}

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
} // namespace

void MeasureRemoval(bool isLong)
{
    for (const Shape shape : {Shape::Flat, Shape::Deep, Shape::Wide})
    {
        double perFileOfFirst = 0;
        for (const int files : isLong ? std::vector{1000, 10'000, 100'000} : std::vector{1000, 10'000})
        {
            const int rounds = files > 10'000 ? 3 : 5;
            std::vector<double> own;
            std::vector<double> standard;
            std::vector<double> command;
            for (int round = 0; round < rounds; ++round)
            {
                own.push_back(TimeRemoval(shape, files, [] { Installer::RemoveFolder(c_root); }));
                standard.push_back(TimeRemoval(shape, files, [] { std::filesystem::remove_all(c_root); }));
                // Less what starting the command processor takes.
                const double start = Time([] { RunCommand(L"exit"); }).count();
                command.push_back(
                    TimeRemoval(shape, files, [] { RunCommand(L"rmdir /s /q " + std::wstring(c_root)); }) - start);
            }
            const std::string what = "Removing " + std::to_string(files) + " files, " + NameOf(shape);
            PrintRow(what, Median(own), "ms", "`rmdir /s /q`", Median(command), 1);
            PrintRow(what, Median(own), "ms", "`remove_all`", Median(standard), 1);
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
    }
}
} // namespace Benchmarks
