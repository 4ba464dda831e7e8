// The compiler's own header, the annotation that it lacks (none means anything to this compiler), and a keyword that
// comes with them. For the real WIL.
#include_next <sal.h>

#ifndef _Post_ptr_invalid_
#define _Post_ptr_invalid_
#endif
#if defined(__cplusplus) && !defined(__clang__) && !defined(__nullptr)
#define __nullptr nullptr
#endif
