#pragma once

namespace Installer
{

// Names the calling thread for debuggers and minidumps. Does nothing before Windows 10, version 1607, which introduced
// thread names; a failure is ignored.
void NameThread(const wchar_t* name) noexcept;

} // namespace Installer
