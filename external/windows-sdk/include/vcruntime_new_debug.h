// The C runtime's <new.h>, which the real WIL includes, needs it; libc++ has the operators.
#pragma once
