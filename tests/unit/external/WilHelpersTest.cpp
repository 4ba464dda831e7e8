#include "support/common/ImportTableFake.h"
#include "support/unit/RecordedFailures.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <wil/resource.h>
#include <wil/stl.h>
#include <wil/token_helpers.h>
#include <wil/win32_helpers.h>

#include <algorithm>
#include <string>

using namespace Testing;

TEST(GetModuleFileNameTest, Gives_the_full_path_of_the_program)
{
    EXPECT_THAT(wil::GetModuleFileNameW<std::wstring>(), testing::EndsWith(L"\\UnitTests.exe"));
}

TEST(GetModuleFileNameTest, Grows_its_buffer_until_the_path_fits)
{
    const std::wstring path(5000, L'x');
    const auto module = reinterpret_cast<HMODULE>(INT_PTR{8});
    const Fake<&GetModuleFileNameW> name = [&](HMODULE asked, wchar_t* buffer, DWORD size) -> DWORD {
        EXPECT_EQ(asked, module);
        const auto length = std::min(path.size(), size_t{size});
        path.copy(buffer, length);
        if (length == path.size() && length < size)
        {
            buffer[length] = L'\0';
            return static_cast<DWORD>(length);
        }
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return size;
    };
    EXPECT_EQ(wil::GetModuleFileNameW<std::wstring>(module), path);
}

TEST(GetModuleFileNameTest, Throws_the_last_error)
{
    const Fake<&GetModuleFileNameW> name = Fails(ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(CodeThrownBy([] { wil::GetModuleFileNameW<std::wstring>(); }), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
}

TEST(ProcessImageNameTest, Gives_the_full_path_of_the_file_that_a_process_was_started_from)
{
    wil::unique_cotaskmem_string path;
    EXPECT_EQ(wil::QueryFullProcessImageNameW(GetCurrentProcess(), 0, path), S_OK);
    EXPECT_THAT(std::wstring(path.get()), testing::EndsWith(L"\\UnitTests.exe"));
}

TEST(ProcessImageNameTest, Grows_its_buffer_until_the_path_fits)
{
    const std::wstring image(5000, L'x');
    const auto process = reinterpret_cast<HANDLE>(INT_PTR{8});
    const Fake<&QueryFullProcessImageNameW> query = [&](HANDLE asked, DWORD flags, wchar_t* buffer, DWORD* size) {
        EXPECT_EQ(asked, process);
        EXPECT_EQ(flags, DWORD{PROCESS_NAME_NATIVE});
        if (*size <= image.size())
        {
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
        image.copy(buffer, image.size());
        buffer[image.size()] = L'\0';
        *size = static_cast<DWORD>(image.size());
        return TRUE;
    };
    wil::unique_cotaskmem_string path;
    EXPECT_EQ(wil::QueryFullProcessImageNameW(process, PROCESS_NAME_NATIVE, path), S_OK);
    EXPECT_EQ(path.get(), image);
}

TEST(ProcessImageNameTest, Returns_the_last_error)
{
    const Fake<&QueryFullProcessImageNameW> query = Fails(ERROR_GEN_FAILURE);
    wil::unique_cotaskmem_string path;
    EXPECT_EQ(wil::QueryFullProcessImageNameW(GetCurrentProcess(), 0, path), HRESULT_FROM_WIN32(ERROR_GEN_FAILURE));
    EXPECT_FALSE(path);
}

TEST(GetTokenInformationTest, Asks_the_token_for_what_the_type_names)
{
    const auto token = reinterpret_cast<HANDLE>(INT_PTR{8});
    const Fake<&GetTokenInformation> information = [&](HANDLE asked, TOKEN_INFORMATION_CLASS kind, void* answer,
                                                       DWORD size, DWORD*) {
        EXPECT_EQ(asked, token);
        EXPECT_EQ(kind, TokenElevation);
        EXPECT_EQ(size, sizeof(TOKEN_ELEVATION));
        static_cast<TOKEN_ELEVATION*>(answer)->TokenIsElevated = 3;
        return TRUE;
    };
    EXPECT_EQ(wil::get_token_information<TOKEN_ELEVATION>(token).TokenIsElevated, 3U);
}

TEST(GetTokenInformationTest, Gives_an_answer_of_any_size_as_an_owned_pointer)
{
    const auto user = wil::get_token_information<TOKEN_USER>(GetCurrentProcessToken());

    ASSERT_NE(user, nullptr);
    EXPECT_TRUE(IsValidSid(user->User.Sid));
}

TEST(GetTokenInformationTest, Throws_the_failure_of_any_query)
{
    for (const bool isFirst : {true, false})
    {
        const Fake<&GetTokenInformation> query = [&](HANDLE, TOKEN_INFORMATION_CLASS, void* data, DWORD,
                                                     DWORD* needed) -> BOOL {
            *needed = 100;
            SetLastError(data == nullptr && !isFirst ? ERROR_INSUFFICIENT_BUFFER : ERROR_ACCESS_DENIED);
            return FALSE;
        };
        EXPECT_EQ(CodeThrownBy([] { wil::get_token_information<TOKEN_USER>(GetCurrentProcessToken()); }),
                  E_ACCESSDENIED);
        EXPECT_EQ(CodeThrownBy([] { wil::get_token_information<TOKEN_ELEVATION>(GetCurrentProcessToken()); }),
                  E_ACCESSDENIED);
    }
}
