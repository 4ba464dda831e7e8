#include "support/end_to_end/Identity.h"
#include "support/end_to_end/Services.h"
#include "support/end_to_end/Waiting.h"
#include "support/end_to_end/Wine.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>

namespace
{
bool IsAllowedHere()
{
    wchar_t answer[2]{};
    return Testing::IsWine() ||
           (GetEnvironmentVariableW(L"VELMORA_ALLOW_DESTRUCTIVE_TESTS", answer, 2) == 1 && answer[0] == L'1');
}

// Wine starts without it once in a while. Whoever has started these tests looks for the text below and starts anew.
bool HasServiceManager()
{
    constexpr std::chrono::seconds c_startTime{10};
    return Testing::BecomesTrue(
        [] { return Testing::UniqueService(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT)) != nullptr; },
        c_startTime);
}
} // namespace

// The test program's entry point.
int wmain(int count, wchar_t** arguments)
{
    SetConsoleOutputCP(CP_UTF8);
    Testing::ElevateUnderWine();
    ::testing::InitGoogleTest(&count, arguments);
    if (!GTEST_FLAG_GET(list_tests) && !IsAllowedHere())
    {
        std::puts("These tests install and uninstall on the machine they run on, and change its registry and PATH.\n"
                  "On a machine that may be changed, set VELMORA_ALLOW_DESTRUCTIVE_TESTS=1 and start them again.");
        return 1;
    }
    if (!GTEST_FLAG_GET(list_tests) && !HasServiceManager())
    {
        std::puts("The service manager does not answer.");
        return 1;
    }
    if (!GTEST_FLAG_GET(list_tests) && !Testing::IsElevated(GetCurrentProcessToken()))
    {
        std::puts("These tests have to be started as an administrator.");
        return 1;
    }
    return RUN_ALL_TESTS();
}
