#include "support/ImportTableFake.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <wil/resource.h>
#include <wil/stl.h>
#include <wil/token_helpers.h>
#include <wil/win32_helpers.h>

#include <algorithm>
#include <string>

using namespace Testing;

TEST(GetModuleFileName, gives_the_full_path_of_the_program)
{
    EXPECT_THAT(wil::GetModuleFileNameW<std::wstring>(), testing::EndsWith(L"\\UnitTests.exe"));
}

TEST(GetModuleFileName, grows_its_buffer_until_the_path_fits)
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

TEST(GetModuleFileName, throws_the_last_error)
{
    const Fake<&GetModuleFileNameW> name = [](HMODULE, wchar_t*, DWORD) -> DWORD {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return 0;
    };
    EXPECT_THROW(
        try { wil::GetModuleFileNameW<std::wstring>(); } catch (const wil::ResultException& exception) {
            EXPECT_EQ(exception.GetErrorCode(), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
            throw;
        },
        wil::ResultException);
}

TEST(ProcessImageName, gives_the_full_path_of_the_file_that_a_process_was_started_from)
{
    wil::unique_cotaskmem_string path;
    EXPECT_EQ(wil::QueryFullProcessImageNameW(GetCurrentProcess(), 0, path), S_OK);
    EXPECT_THAT(std::wstring(path.get()), testing::EndsWith(L"\\UnitTests.exe"));
}

TEST(ProcessImageName, grows_its_buffer_until_the_path_fits)
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

TEST(ProcessImageName, returns_the_last_error)
{
    const Fake<&QueryFullProcessImageNameW> query = [](HANDLE, DWORD, wchar_t*, DWORD*) {
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    };
    wil::unique_cotaskmem_string path;
    EXPECT_EQ(wil::QueryFullProcessImageNameW(GetCurrentProcess(), 0, path), HRESULT_FROM_WIN32(ERROR_GEN_FAILURE));
    EXPECT_FALSE(path);
}

TEST(GetTokenInformation, asks_the_token_for_what_the_type_names)
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

TEST(GetTokenInformation, gives_an_answer_of_any_size_as_an_owned_pointer)
{
    const auto user = wil::get_token_information<TOKEN_USER>(GetCurrentProcessToken());

    ASSERT_NE(user, nullptr);
    EXPECT_TRUE(IsValidSid(user->User.Sid));
}

TEST(GetTokenInformation, throws_the_failure_of_either_query_for_such_an_answer)
{
    for (const bool isFirst : {true, false})
    {
        const Fake<&GetTokenInformation> query = [&](HANDLE, TOKEN_INFORMATION_CLASS, void* data, DWORD,
                                                     DWORD* needed) -> BOOL {
            *needed = 100;
            SetLastError(data == nullptr && !isFirst ? ERROR_INSUFFICIENT_BUFFER : ERROR_ACCESS_DENIED);
            return FALSE;
        };
        HRESULT result = S_OK;
        try
        {
            wil::get_token_information<TOKEN_USER>(GetCurrentProcessToken());
        }
        catch (const wil::ResultException& exception)
        {
            result = exception.GetErrorCode();
        }
        EXPECT_EQ(result, HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    }
}

TEST(GetTokenInformation, throws_the_last_error)
{
    const Fake<&GetTokenInformation> information = [](HANDLE, TOKEN_INFORMATION_CLASS, void*, DWORD, DWORD*) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    };
    EXPECT_THROW(
        try { wil::get_token_information<TOKEN_ELEVATION>(nullptr); } catch (const wil::ResultException& exception) {
            EXPECT_EQ(exception.GetErrorCode(), HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
            throw;
        },
        wil::ResultException);
}
