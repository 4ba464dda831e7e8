// mingw-w64's header, with a missing macro for reparse tags. Only the real WIL needs it.
#include_next <winnt.h>

#ifndef IsReparseTagDirectory
// Whether a directory with this reparse tag can have children.
#define IsReparseTagDirectory(_tag) (((_tag) & 0x10000000))
#endif
