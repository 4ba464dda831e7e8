#pragma once

// Resource IDs. Macros, because Uninstaller.rc includes this header too.

// NOLINTBEGIN(modernize-macro-to-enum)
#define IDI_VELMORA 101
#define IDR_LOGO 102 // of type "PNG"
// NOLINTEND(modernize-macro-to-enum)
