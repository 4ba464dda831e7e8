#pragma once

#include <string>
#include <string_view>

// What can be told of paths from their texts alone, without a look at the file system.
namespace Installer
{

// The path in the form that Windows accepts beyond MAX_PATH characters on every machine: made full and normalised as by
// GetFullPathNameW, with "\\?\" (or "\\?\UNC\") in front. One that begins with "\\?\" stays as it is, and so does one
// that Windows does not make full (an empty one, for example).
std::wstring ToExtendedPath(const std::wstring& path);

// The folder that an extended path lies in, with the separator at its end; empty for the root of a volume or of a share
// and for any other path.
std::wstring_view GetParentFolder(std::wstring_view extendedPath);

// The three comparisons are made of the texts: letter case does not count, nor does which separators there are and how
// many, a prefix like "\\?\", or a "." or ".." on the way.

// Whether two paths name the same place.
bool IsSamePath(const std::wstring& path, const std::wstring& other);

// Whether a path leads below a folder, however deep.
bool IsBelow(const std::wstring& path, const std::wstring& folder);

// The same, but what begins with a full stop in the folder is not seen as inside.
bool IsInside(const std::wstring& path, const std::wstring& folder);

} // namespace Installer
