// The order of these headers is what is tested here; no other one may come before them.
// clang-format off
#include <windows.h>
#include <wil/resource.h>
#if defined(_COMBASEAPI_H_) || defined(_OLEAUTO_H_)
#error "wil/resource.h brings the headers of COM along: a source file that forgets them would compile"
#endif
#include <combaseapi.h>
#include <oleauto.h>
#include <winsvc.h>
#include <wil/resource.h>
// clang-format on

#include <gtest/gtest.h>

TEST(OwnersTest, Come_with_the_header_that_they_are_for_even_when_it_is_included_later)
{
    EXPECT_FALSE(wil::unique_cotaskmem_string());
    EXPECT_FALSE(wil::unique_bstr());
    EXPECT_FALSE(wil::unique_schandle());
    EXPECT_EQ(wil::unique_variant().vt, VT_EMPTY);
}
