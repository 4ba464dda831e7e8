#pragma once

// The numbers of the program's resources. The resource compiler, which includes this header too, knows macros only.

// NOLINTBEGIN(modernize-macro-to-enum)
#define IDI_VELMORA 101
#define IDR_LOGO 102 // of type "PNG"
// NOLINTEND(modernize-macro-to-enum)
