#include "support/common/ImportTableFake.h"

#include "Installer/GdiPlus.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <stdexcept>

namespace
{

using namespace Testing;

TEST(ImportTableFakeTest, Replaces_a_function_that_its_header_puts_into_a_namespace)
{
    const Fake<&Gdiplus::DllExports::GdipDeleteBrush> fake = [](Gdiplus::GpBrush*) { return Gdiplus::Win32Error; };
    EXPECT_EQ(Gdiplus::DllExports::GdipDeleteBrush(nullptr), Gdiplus::Win32Error);
}

TEST(ImportTableFakeTest, Hides_an_earlier_one_which_it_can_call_while_it_lives)
{
    {
        Fake<&GetCurrentProcessId> outer = []() -> DWORD { return 1; };
        {
            Fake<&GetCurrentProcessId> inner = []() -> DWORD { return 2; };
            EXPECT_EQ(GetCurrentProcessId(), 2U);
            EXPECT_EQ(inner.Hidden(), 1U);
        }
        EXPECT_EQ(GetCurrentProcessId(), 1U);
        EXPECT_EQ(outer.Hidden(), decltype(outer)::Real());
        EXPECT_NE(decltype(outer)::Real(), 1U);
    }
    EXPECT_NE(GetCurrentProcessId(), 1U);
}

TEST(ImportTableFakeTest, Refuses_a_function_that_the_program_does_not_import)
{
    EXPECT_THROW(ImportSlot("NoSuchFunctionAnywhere"), std::logic_error);
    EXPECT_EQ(FindImportSlot("NoSuchFunctionAnywhere"), nullptr);
}

} // namespace
