// What the C runtime's headers need of Visual C++'s own.
#pragma once

#include <sal.h>
#include <stddef.h>
#include <vadefs.h>

#define _CRT_BEGIN_C_HEADER extern "C" {
#define _CRT_END_C_HEADER }
#define __CRTDECL __cdecl
#define __CLR_OR_THIS_CALL
#define _VCRTIMP
#define _CRTIMP2
#define _CRT_WIDE_(text) L##text
#define _CRT_WIDE(text) _CRT_WIDE_(text)
#define _CRT_DEPRECATE_TEXT(text) __declspec(deprecated(text))
#define _CRT_INSECURE_DEPRECATE(replacement) _CRT_DEPRECATE_TEXT("use " #replacement)
#define _CRT_INSECURE_DEPRECATE_MEMORY(replacement) // as the compiler has it, without _CRT_SECURE_DEPRECATE_MEMORY

typedef long long intptr_t;
typedef unsigned long long uintptr_t;
