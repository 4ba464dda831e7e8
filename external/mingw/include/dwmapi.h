// mingw-w64's header, with a missing attribute.
#pragma once

#include_next <dwmapi.h>

#if defined(__cplusplus) && __MINGW64_VERSION_MAJOR < 12
inline constexpr DWMWINDOWATTRIBUTE DWMWA_USE_IMMERSIVE_DARK_MODE = static_cast<DWMWINDOWATTRIBUTE>(20);
#endif
