// With this header the library's helpers take the standard library's strings; here they always do.
#pragma once

#include "resource.h"
