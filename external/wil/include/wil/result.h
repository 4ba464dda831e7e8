// The result macros and the RAII owners.
#pragma once

#include "resource.h"
#include "result_macros.h"
