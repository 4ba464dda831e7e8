// The compiler's own header and the attribute that it lacks.
#pragma once

#include_next <dwmapi.h>

#ifdef __cplusplus
inline constexpr DWMWINDOWATTRIBUTE DWMWA_USE_IMMERSIVE_DARK_MODE = static_cast<DWMWINDOWATTRIBUTE>(20);
#endif
