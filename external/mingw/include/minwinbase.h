// mingw-w64's header, with a value that its version check leaves out.
#include_next <minwinbase.h>

#if defined(__cplusplus) && !defined(VELMORA_MINWINBASE_ADDITIONS)
#define VELMORA_MINWINBASE_ADDITIONS
#if _WIN32_WINNT < 0x0A000002 && __MINGW64_VERSION_MAJOR < 12
inline constexpr FILE_INFO_BY_HANDLE_CLASS FileDispositionInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);
#endif
#endif
