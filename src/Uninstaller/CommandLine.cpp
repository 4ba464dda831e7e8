#include "Uninstaller/CommandLine.h"

#include "Installer/Text.h"

#include <windows.h>

#include <shellapi.h>

#include <wil/resource.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Uninstaller
{

namespace
{

using Installer::RunType;

constexpr struct
{
    std::string_view name;
    RunType runType;
} c_switches[] = {
    {"-v", RunType::Verbose}, {"--verbose", RunType::Verbose}, {"-s", RunType::Silent}, {"--silent", RunType::Silent},
    {"-g", RunType::Gui},     {"--gui", RunType::Gui},
};

using unique_arguments = wil::unique_any<PWSTR*, decltype(&::LocalFree), ::LocalFree>;

constexpr std::wstring_view c_blanks = L" \t";

// By Windows' rules for quotation marks and backslashes.
std::optional<std::wstring> SplitOffArgument(const wchar_t* commandLine)
{
    int count = 0;
    const unique_arguments arguments(CommandLineToArgvW(commandLine, &count));
    return count < 2 ? std::nullopt : std::optional<std::wstring>(arguments.get()[1]);
}

// The first argument; nullopt without one. Plain text needs no rules, and CommandLineToArgvW loads the shell's library.
std::optional<std::wstring> FindArgument(const wchar_t* commandLine)
{
    const std::wstring_view line = commandLine;
    const std::size_t nameEnd = line.starts_with(L'"') ? line.find(L'"', 1) + 1 : line.find_first_of(c_blanks);
    const std::wstring_view arguments = line.substr(std::min(nameEnd, line.size()));
    const std::size_t begin = arguments.find_first_not_of(c_blanks);
    if (nameEnd == 0 || begin == 0 || arguments.find_first_of(L"\"\\") != std::wstring_view::npos)
    {
        return SplitOffArgument(commandLine);
    }
    if (begin == std::wstring_view::npos)
    {
        return std::nullopt;
    }
    return std::wstring(arguments.substr(begin, arguments.find_first_of(c_blanks, begin) - begin));
}

} // namespace

CommandLine ParseCommandLine()
{
    const std::optional<std::wstring> found = FindArgument(GetCommandLineW());
    if (!found)
    {
        return {};
    }
    const std::wstring& argument = *found;
    // Compared in the ANSI code page, without best fit: a typographic dash does not become "-".
    const std::string narrow = Installer::EncodeAnsi(argument);
    for (const auto& known : c_switches)
    {
        if (narrow == known.name)
        {
            return {known.runType, false, argument};
        }
    }
    return {RunType::Verbose, true, argument};
}

} // namespace Uninstaller
