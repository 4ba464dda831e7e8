#pragma once

#include <string>

namespace Installer
{

// Whether a folder is never deleted and nothing in it is ended, whatever the install record says: the root of a volume,
// Windows and everything in it, Program Files, ProgramData, a user's profile, or anything that holds one of these. The
// folder is taken for what it is, not for how it is written. One that cannot be examined counts as such, too; one of
// those that Windows does not tell protects nothing.
bool IsProtectedFolder(const std::wstring& folder) noexcept;

} // namespace Installer
