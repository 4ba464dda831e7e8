// mingw-w64's header, with __fastfail.
#if defined(__clang__)
// clang's <cpuid.h> and this header both define __cpuidex: skip the former.
#ifndef __CPUID_H
#define __CPUID_H
#endif
// This header includes a deprecated one of clang.
#ifndef _CLANG_DISABLE_CRT_DEPRECATION_WARNINGS
#define _CLANG_DISABLE_CRT_DEPRECATION_WARNINGS
#endif
#endif

// <strsafe.h> defines macros with the names of functions that this header declares.
#pragma push_macro("strcat")
#pragma push_macro("strcpy")
#pragma push_macro("wcscat")
#pragma push_macro("wcscpy")
#undef strcat
#undef strcpy
#undef wcscat
#undef wcscpy
#include_next <intrin.h>
#pragma pop_macro("strcat")
#pragma pop_macro("strcpy")
#pragma pop_macro("wcscat")
#pragma pop_macro("wcscpy")

#if __MINGW64_VERSION_MAJOR < 12 && !defined(VELMORA_INTRIN_ADDITIONS)
#define VELMORA_INTRIN_ADDITIONS

#ifdef __cplusplus
extern "C" {
#endif

// Only the real WIL needs it.
static inline __attribute__((noreturn, always_inline, unused)) void __fastfail(unsigned int code)
{
    __asm__ volatile("int $0x29" : : "c"(code) : "memory");
    __builtin_unreachable();
}

#ifdef __cplusplus
}
#endif

#endif
