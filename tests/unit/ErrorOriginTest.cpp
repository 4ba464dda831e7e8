#include "support/common/ImportTableFake.h"

#include <windows.h>

#include <unknwn.h>
#include <winstring.h>

#include <gtest/gtest.h>

#include <bit>
#include <string_view>

// As C++/WinRT calls it; not imported.
extern "C" BOOL WINAPI RoOriginateLanguageException(HRESULT error, HSTRING message, IUnknown* exception);

namespace
{

using namespace Testing;

HSTRING const c_message = reinterpret_cast<HSTRING>(0x1000);
IUnknown* const c_exception = reinterpret_cast<IUnknown*>(0x2000);

class ErrorOriginTest : public testing::Test
{
protected:
    // In place of the one in combase.dll.
    static BOOL WINAPI Originate(HRESULT error, HSTRING message, IUnknown* exception)
    {
        EXPECT_EQ(error, E_ACCESSDENIED);
        EXPECT_EQ(message, c_message);
        EXPECT_EQ(exception, c_exception);
        return TRUE;
    }

    HMODULE combase = GetModuleHandleW(L"combase.dll");
    FARPROC function = std::bit_cast<FARPROC>(&Originate);
    Fake<&GetProcAddress> find = [this](HMODULE library, LPCSTR name) -> FARPROC {
        EXPECT_EQ(library, combase);
        EXPECT_EQ(std::string_view(name), "RoOriginateLanguageException");
        SetLastError(function == nullptr ? ERROR_PROC_NOT_FOUND : ERROR_SUCCESS);
        return function;
    };
};

TEST_F(ErrorOriginTest, Is_passed_on_to_Windows)
{
    EXPECT_TRUE(RoOriginateLanguageException(E_ACCESSDENIED, c_message, c_exception));
}

TEST_F(ErrorOriginTest, Is_not_told_where_Windows_lacks_the_function_or_the_library)
{
    function = nullptr; // Windows 8
    EXPECT_FALSE(RoOriginateLanguageException(E_ACCESSDENIED, c_message, c_exception));

    Fake<&GetModuleHandleW> loaded = [](LPCWSTR) -> HMODULE { return nullptr; };
    EXPECT_FALSE(RoOriginateLanguageException(E_ACCESSDENIED, c_message, c_exception));
}

} // namespace
