// What the C runtime's headers need of Visual C++'s own.
#pragma once

typedef char* va_list;

#define __crt_va_start(list, last) __builtin_va_start(list, last)
#define __crt_va_arg(list, type) __builtin_va_arg(list, type)
#define __crt_va_end(list) __builtin_va_end(list)
