#pragma once

namespace Installer
{

// How a run presents itself, from the first command-line argument.
enum class RunType
{
    Gui = 0,     // status window
    Verbose = 1, // log on a console, no window
    Silent = 2,  // no window, console, prompt or message box
};

} // namespace Installer
