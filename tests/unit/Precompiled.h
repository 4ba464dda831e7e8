#pragma once

// What nearly every unit test includes, compiled once for all of them.
#include "support/common/ImportTableFake.h"

#include <windows.h>

#include <shlobj.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>
