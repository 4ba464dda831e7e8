#include "Installer/ThreadName.h"

#include "support/FakeThreadNames.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using namespace Installer;

class ThreadNameTest : public testing::Test
{
protected:
    std::vector<std::wstring> given;
    HRESULT result = S_OK;
    Testing::FakeThreadNames names{[this](HANDLE thread, PCWSTR name) {
        EXPECT_EQ(thread, GetCurrentThread());
        given.emplace_back(name);
        return result;
    }};
};

TEST_F(ThreadNameTest, is_given_once_where_both_libraries_have_the_function)
{
    NameThread(L"some_thread");

    EXPECT_EQ(given, std::vector<std::wstring>{L"some_thread"});
}

TEST_F(ThreadNameTest, is_given_where_only_kernel32_has_the_function)
{
    names.libraries = {GetModuleHandleW(L"kernel32.dll")};

    NameThread(L"some_thread");

    EXPECT_EQ(given, std::vector<std::wstring>{L"some_thread"});
}

TEST_F(ThreadNameTest, is_given_on_Windows_10_version_1607_where_only_KernelBase_has_the_function)
{
    names.libraries = {GetModuleHandleW(L"kernelbase.dll")};

    NameThread(L"some_thread");

    EXPECT_EQ(given, std::vector<std::wstring>{L"some_thread"});
}

TEST_F(ThreadNameTest, is_left_out_on_a_Windows_that_has_no_names_for_threads)
{
    names.libraries = {};

    NameThread(L"some_thread");

    EXPECT_TRUE(given.empty());
}

TEST_F(ThreadNameTest, may_be_refused)
{
    result = HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY);

    NameThread(L"some_thread");

    EXPECT_EQ(given.size(), 1U);
}

} // namespace
