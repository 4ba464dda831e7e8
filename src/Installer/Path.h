#pragma once

#include <string>
#include <string_view>

// Lexical operations on paths: they do not access the file system.
namespace Installer
{

// The extended-length path ("\\?\…" or "\\?\UNC\…") of a path, made absolute and normalised by GetFullPathNameW. A path
// that begins with "\\?\", or that GetFullPathNameW rejects (an empty one), is returned unchanged.
std::wstring ToExtendedPath(const std::wstring& path);

// The parent of an extended-length path, with its trailing separator. Empty for the root of a volume or share, and for
// paths in any other form.
std::wstring_view GetParentFolder(std::wstring_view extendedPath);

// The comparisons normalise both paths: they ignore case, the kind and number of separators, prefixes such as "\\?\",
// and resolve "." and "..".

// Whether two paths are equal.
bool IsSamePath(const std::wstring& path, const std::wstring& other);

// Whether a path lies below a folder, at any depth.
bool IsBelow(const std::wstring& path, const std::wstring& folder);

// Whether a path lies below a folder, and its first component in it does not begin with a dot.
bool IsInside(const std::wstring& path, const std::wstring& folder);

} // namespace Installer
