#include "Installer/Security.h"

#include "support/ImportTableFake.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <wil/result.h>

namespace
{

using namespace Testing;

// The token of the calling thread says whether it is elevated.
class IsTokenElevated : public testing::Test
{
protected:
    DWORD elevation = 0;
    Fake<&GetTokenInformation> getTokenInformation = [this](HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID data,
                                                            DWORD size, PDWORD needed) -> BOOL {
        EXPECT_EQ(token, GetCurrentThreadEffectiveToken());
        EXPECT_EQ(kind, TokenElevation);
        EXPECT_EQ(size, 4U);
        *static_cast<DWORD*>(data) = elevation;
        *needed = size;
        return TRUE;
    };
};

TEST_F(IsTokenElevated, says_no_for_an_ordinary_token)
{
    EXPECT_FALSE(Installer::IsTokenElevated());
}

TEST_F(IsTokenElevated, says_yes_for_an_elevated_token)
{
    elevation = 1;

    EXPECT_TRUE(Installer::IsTokenElevated());
}

TEST_F(IsTokenElevated, throws_when_the_token_cannot_be_asked)
{
    Fake<&GetTokenInformation> failing = [](HANDLE, TOKEN_INFORMATION_CLASS, LPVOID, DWORD, PDWORD) -> BOOL {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    };

    try
    {
        Installer::IsTokenElevated();
        FAIL() << "nothing was thrown";
    }
    catch (const wil::ResultException& exception)
    {
        EXPECT_EQ(exception.GetErrorCode(), HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
    }
}

} // namespace
