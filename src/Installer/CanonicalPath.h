#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace Installer
{

// A full path as the file system itself writes it: in its own letter case, with the long names, and with the targets of
// links in place of the links. That is done for as much of the path as there is; the rest follows as it stands, less
// its "." and "..". Returns nothing when something on the way is there but does not tell its name; no failure is
// recorded.
std::optional<std::filesystem::path> GetCanonicalPath(const std::wstring& path);

// Whether a path leads into a folder, by the texts of both alone, letter for letter. What begins with a full stop in
// the folder is not seen as inside.
bool IsInside(const std::filesystem::path& path, const std::filesystem::path& folder);

} // namespace Installer
