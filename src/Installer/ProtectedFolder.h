#pragma once

#include <string>

namespace Installer
{

// Whether a folder must never be deleted, and no process in it terminated, whatever the install record says: a volume's
// root, Windows and everything in it, Program Files, ProgramData, a user's profile, or an ancestor of one of these.
// Compares canonical paths. True when the folder cannot be examined; a known folder that Windows does not return is
// skipped.
bool IsProtectedFolder(const std::wstring& folder) noexcept;

} // namespace Installer
