#pragma once

#include <string>

// Unelevated launches through the desktop's shell.
namespace Installer
{

// Opens a file or starts a program unelevated, as the desktop's user. An elevated process goes through Explorer's
// IShellDispatch2, which needs COM on the calling thread; another one calls ShellExecuteW.
// Throws wil::ResultException with the failed call's HRESULT; HRESULT_FROM_WIN32(ERROR_NOT_FOUND) when there is no
// desktop window.
void ShellExecuteFromExplorer(const std::wstring& file);

} // namespace Installer
