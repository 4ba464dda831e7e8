// The compiler's own header and what it lacks of reparse points. For the real WIL.
#include_next <winnt.h>

#ifndef IsReparseTagDirectory
// Whether what a reparse point of this kind stands for is a directory with contents of its own.
#define IsReparseTagDirectory(_tag) (((_tag) & 0x10000000))
#endif
