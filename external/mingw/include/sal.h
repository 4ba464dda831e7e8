// The compiler's own header and the annotation that it lacks: none means anything to this compiler.
#include_next <sal.h>

#ifndef _Post_ptr_invalid_
#define _Post_ptr_invalid_
#endif
