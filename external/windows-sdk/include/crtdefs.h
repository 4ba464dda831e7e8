// The C runtime's <new.h>, which the real WIL includes, needs it.
#pragma once

#include <vcruntime.h>
