// In the library, this header enables std::wstring in its helpers; here it is always enabled.
#pragma once

#include "resource.h"
