#pragma once

#include <string>

namespace Testing
{

// Makes a directory link (a junction; under Wine, which has none, a symbolic link of the system below it). Both are
// full paths; the target is an existing directory. Returns whether the link is there.
bool CreateDirectoryLink(const std::wstring& link, const std::wstring& target);

// Removes a link and leaves its target alone, which under Wine RemoveDirectoryW does not. Returns whether it is gone.
bool RemoveDirectoryLink(const std::wstring& link);

// Whether a Windows program can remove a directory link here: under Wine it reaches only the link's target.
bool CanRemoveDirectoryLinks();

} // namespace Testing
