// mingw-w64's header, with missing identifiers.
#pragma once

#include_next <uiautomationclient.h>

#ifndef UIA_LiveRegionChangedEventId
#define UIA_LiveRegionChangedEventId (20024)
#endif
#ifndef UIA_TextControlTypeId
#define UIA_TextControlTypeId (50020)
#endif
#ifndef UIA_WindowControlTypeId
#define UIA_WindowControlTypeId (50032)
#endif
