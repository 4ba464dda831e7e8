#pragma once

#include <optional>
#include <string>

namespace Installer
{

// A path as the file system itself writes it: in its own letter case, with the long names, and with the targets of
// links in place of the links; in the extended form ("\\?\"). That is done for as much of the path as there is; the
// rest follows as it stands, and so does all of a relative path that leads to nothing. Only the root of a volume has a
// separator at its end. Returns nothing when something on the way is there but does not tell its name; no failure is
// recorded.
std::optional<std::wstring> GetCanonicalPath(const std::wstring& path);

} // namespace Installer
