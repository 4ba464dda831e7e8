// mingw-w64's header, with a missing annotation and keyword. Only the real WIL needs them.
#include_next <sal.h>

#ifndef _Post_ptr_invalid_
#define _Post_ptr_invalid_
#endif
#if defined(__cplusplus) && !defined(__clang__) && !defined(__nullptr)
#define __nullptr nullptr
#endif
