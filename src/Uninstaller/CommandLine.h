#pragma once

#include "Installer/RunType.h"

#include <string>

namespace Uninstaller
{

// The first command-line argument; all others are ignored.
struct CommandLine
{
    Installer::RunType runType = Installer::RunType::Gui;
    bool help = false;
    std::wstring argument; // as given; empty without one
};

// Parses this process's command line. Without an argument, the run is a GUI run; an unknown argument requests help.
CommandLine ParseCommandLine();

// The help text, line by line.
inline constexpr const wchar_t* c_helpLines[] = {
    L"-v  | --verbose            | Detailed uninstaller logging",
    L"-s  | --silent             | Don't show a status GUI",
    L"-g  | --gui                | Show a status GUI (default)",
    L"-h  | --help               | Display this help screen",
};

} // namespace Uninstaller
