// Making and removing directory trees.
#pragma once

#include "resource.h"
#include "result.h"
#include "win32_helpers.h"

namespace wil
{

// Creates a directory and all that is missing above it, up to the drive, the volume or the share. S_OK also when it
// exists; otherwise the code of the creation that failed.
HRESULT CreateDirectoryDeepNoThrow(PCWSTR path) noexcept;

enum class RemoveDirectoryOptions
{
    None = 0,
    KeepRootDirectory = 0x1, // empties the directory
    RemoveReadOnly = 0x2,    // removes read-only files too
};
DEFINE_ENUM_FLAG_OPERATORS(RemoveDirectoryOptions)

// Opens a directory so that, unless `share` says so, nobody can rename or delete it while the handle lives. Gives an
// empty owner when it cannot be opened, is no directory, or is a link to elsewhere (a junction, a symbolic link, any
// other name surrogate). The attributes and the reparse tag seen through the handle go to findData, which may be null.
unique_hfile TryCreateFileCanRecurseIntoDirectory(PCWSTR path, PWIN32_FIND_DATAW findData,
                                                  DWORD access = GENERIC_READ | DELETE,
                                                  DWORD share = FILE_SHARE_READ) noexcept;

// Removes a directory with all that lies below it, names that Windows would normalise and paths of any length included.
// Links are removed and never followed, and what is mounted in the tree is unmounted; reparse points that are no links
// are files and directories like any. What cannot be removed is recorded, with its path as the message, and left; the
// rest still goes. deleteHandle: the directory's own handle if the caller holds it (GENERIC_READ | DELETE).
// Returns S_OK or the first failure: ERROR_PATH_NOT_FOUND when there is no such directory, ERROR_DIRECTORY when it is a
// file, ERROR_REPARSE_POINT_ENCOUNTERED when it is a link itself (nothing is removed then), else the code of the
// first thing that could not be removed.
HRESULT RemoveDirectoryRecursiveNoThrow(PCWSTR path, RemoveDirectoryOptions options = RemoveDirectoryOptions::None,
                                        HANDLE deleteHandle = INVALID_HANDLE_VALUE) noexcept;

} // namespace wil
