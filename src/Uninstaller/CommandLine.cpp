#include "Uninstaller/CommandLine.h"

#include "Installer/Text.h"

#include <windows.h>

#include <shellapi.h>

#include <wil/resource.h>

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

} // namespace

CommandLine ParseCommandLine()
{
    int count = 0;
    const unique_arguments arguments(CommandLineToArgvW(GetCommandLineW(), &count));
    if (count < 2)
    {
        return {};
    }
    const wchar_t* const argument = arguments.get()[1];
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
