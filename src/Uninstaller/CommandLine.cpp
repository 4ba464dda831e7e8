#include "Uninstaller/CommandLine.h"

#include <windows.h>

#include <shellapi.h>

#include <wil/resource.h>

#include <cstddef>
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

// The argument in the system's 8-bit code page, which is what it is compared in; empty when it cannot be converted.
// Characters that the code page does not have do not turn into similar ones: a switch with a typographic dash is not
// that switch. A code page of UTF-8 has all characters, and refuses the flag.
std::string Narrow(const wchar_t* argument)
{
    const DWORD flags = GetACP() == CP_UTF8 ? 0 : WC_NO_BEST_FIT_CHARS;
    const int length = WideCharToMultiByte(CP_ACP, flags, argument, -1, nullptr, 0, nullptr, nullptr);
    std::string text(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(CP_ACP, flags, argument, -1, text.data(), length, nullptr, nullptr);
    if (!text.empty())
    {
        text.pop_back(); // the final zero, which the length includes
    }
    return text;
}

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
    const std::string narrow = Narrow(argument);
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
