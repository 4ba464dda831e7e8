// Searches of a directory that is open for deletion: Windows allows them, Wine fails with ERROR_SHARING_VIOLATION. The
// removal of trees in WIL itself needs them, its stand-in does not.
#pragma once

#include <windows.h>

namespace Testing
{
// Stand for the functions of Windows of these names, and do the same for all other searches.
HANDLE WINAPI StandInForFindFirstFile(const wchar_t* path, WIN32_FIND_DATAW* found);
BOOL WINAPI StandInForFindNextFile(HANDLE search, WIN32_FIND_DATAW* found);
BOOL WINAPI StandInForFindClose(HANDLE search);
} // namespace Testing
