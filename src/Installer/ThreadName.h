#pragma once

namespace Installer
{

// Gives the calling thread a name, which debuggers and minidumps show. Where Windows has no names for threads (before
// Windows 10, version 1607) or refuses this one, nothing happens.
void NameThread(const wchar_t* name) noexcept;

} // namespace Installer
