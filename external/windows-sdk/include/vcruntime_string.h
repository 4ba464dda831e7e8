// What the C runtime's headers need of Visual C++'s own.
#pragma once

#include <vcruntime.h>

extern "C" {
const void* __cdecl memchr(const void* memory, int byte, size_t size);
int __cdecl memcmp(const void* memory, const void* other, size_t size);
void* __cdecl memcpy(void* target, const void* source, size_t size);
void* __cdecl memmove(void* target, const void* source, size_t size);
void* __cdecl memset(void* target, int byte, size_t size);
const char* __cdecl strchr(const char* text, int character);
const char* __cdecl strrchr(const char* text, int character);
const char* __cdecl strstr(const char* text, const char* part);
const wchar_t* __cdecl wcschr(const wchar_t* text, wchar_t character);
const wchar_t* __cdecl wcsrchr(const wchar_t* text, wchar_t character);
const wchar_t* __cdecl wcsstr(const wchar_t* text, const wchar_t* part);
}
