// All about results: the macros, and the owners of what a call may have brought.
#pragma once

#include "resource.h"
#include "result_macros.h"
