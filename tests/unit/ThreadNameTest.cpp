#include "Installer/ThreadName.h"

#include "support/unit/FakeThreadNames.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace
{

using namespace Installer;

TEST(ThreadNameTest, Is_given_once_where_any_library_has_the_function_and_may_be_refused)
{
    const HMODULE kernel32 = GetModuleHandleW(L"kernel32.dll");
    const HMODULE kernelBase = GetModuleHandleW(L"kernelbase.dll");
    std::vector<std::wstring> given;
    Testing::FakeThreadNames names{[&](HANDLE thread, PCWSTR name) {
        EXPECT_EQ(thread, GetCurrentThread());
        given.emplace_back(name);
        return HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY);
    }};
    // Only KernelBase has it on Windows 10, version 1607, and none on those before.
    for (const std::set<HMODULE>& libraries :
         {std::set{kernel32, kernelBase}, std::set{kernel32}, std::set{kernelBase}, std::set<HMODULE>{}})
    {
        names.libraries = libraries;
        given.clear();

        NameThread(L"some_thread");

        EXPECT_EQ(given, std::vector<std::wstring>(libraries.empty() ? 0 : 1, L"some_thread"));
    }
}

} // namespace
