#pragma once

#include <string>

// What the desktop's shell does for this process.
namespace Installer
{

// Opens a file, or starts a program, as the user of the desktop and without elevation. An elevated process asks the
// desktop's shell to do it: COM must be initialised on the calling thread, which waits until the shell has accepted.
// Throws wil::ResultException with the failure of the step that failed; it is the Win32 error as HRESULT where the
// process is not elevated, and that of ERROR_NOT_FOUND where no desktop is there to be asked.
void ShellExecuteFromExplorer(const std::wstring& file);

} // namespace Installer
