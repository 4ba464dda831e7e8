#pragma once

// What nearly every unit test includes, compiled once for all of them.
#include "support/common/ImportTableFake.h"

#include <windows.h>

#include <shlobj.h>
#include <unknwn.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <winrt/Windows.ApplicationModel.h>
#include <winrt/Windows.Foundation.Collections.h>
#include <winrt/Windows.Foundation.h>
#include <winrt/Windows.Management.Deployment.h>

#include <functional>
#include <map>
#include <string>
#include <vector>
