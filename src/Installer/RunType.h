#pragma once

namespace Installer
{

// How a run presents itself; chosen by the first command-line argument.
enum class RunType
{
    Gui = 0,     // a small status window
    Verbose = 1, // a console with the log
    Silent = 2,  // nothing, and no questions
};

} // namespace Installer
