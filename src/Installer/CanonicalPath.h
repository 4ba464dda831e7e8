#pragma once

#include <optional>
#include <string>

namespace Installer
{

// The final path of a file or folder (GetFinalPathNameByHandleW), with "\\?\" in front: letter case as on disk, long
// names, links resolved. Only a volume's root ends in a separator.
// Components that do not exist are appended as they are written. A relative path that does not exist is returned
// unchanged, less its trailing separators. Returns nullopt when an existing component cannot be opened or has no final
// path; nothing is recorded.
std::optional<std::wstring> GetCanonicalPath(const std::wstring& path);

} // namespace Installer
