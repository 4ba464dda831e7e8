#pragma once

#include "Installer/RunType.h"

#include <string>

namespace Uninstaller
{

// What the first command-line argument asks for. All others are ignored.
struct CommandLine
{
    Installer::RunType runType = Installer::RunType::Gui;
    bool help = false;
    std::wstring argument; // as it was given; empty when there was none
};

// Reads this process's command line. No argument is a GUI run; anything that is not a known switch asks for the help.
CommandLine ParseCommandLine();

// The lines of the help, in their order.
inline constexpr const wchar_t* c_helpLines[] = {
    L"-v  | --verbose            | Detailed uninstaller logging",
    L"-s  | --silent             | Don't show a status GUI",
    L"-g  | --gui                | Show a status GUI (default)",
    L"-h  | --help               | Display this help screen",
};

} // namespace Uninstaller
