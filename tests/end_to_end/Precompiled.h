#pragma once

// What nearly every end-to-end test includes, compiled once for all of them.
#include "EndToEndTest.h"
#include "ExpectedLog.h"

#include <windows.h>

#include <gtest/gtest.h>
