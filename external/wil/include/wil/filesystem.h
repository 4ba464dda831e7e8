// Making and removing directory trees.
#pragma once

#include "result_macros.h"

namespace wil
{

// Creates a directory and all that is missing above it, up to the drive, the volume or the share. S_OK also when it
// exists; otherwise the code of the creation that failed.
HRESULT CreateDirectoryDeepNoThrow(PCWSTR path) noexcept;

// Removes a directory with all that lies below it, names that Windows would normalise and paths of any length included.
// Links are removed and never followed, and what is mounted in the tree is unmounted; reparse points that are no links
// are files and directories like any. What cannot be removed is recorded, with its path as the message, and left; the
// rest still goes. Returns S_OK or the first failure: ERROR_PATH_NOT_FOUND when there is no such directory,
// ERROR_DIRECTORY when it is a file, ERROR_REPARSE_POINT_ENCOUNTERED when it is a link itself (nothing is removed
// then), else the code of the first thing that could not be removed.
HRESULT RemoveDirectoryRecursiveNoThrow(PCWSTR path) noexcept;

} // namespace wil
