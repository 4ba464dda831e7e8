#include "support/ImportTableFake.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <wil/registry.h>
#include <wil/resource.h>

#include <algorithm>
#include <cstring>
#include <string>

using namespace Testing;

namespace
{

// A key of the test's own, which goes with the test.
class GetValueString : public testing::Test
{
protected:
    GetValueString()
    {
        RegCreateKeyExW(HKEY_CURRENT_USER, keyName.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    }
    ~GetValueString() override { RegDeleteTreeW(HKEY_CURRENT_USER, keyName.c_str()); }

    // Writes exactly these characters, with no terminator but those among them.
    void Write(const std::wstring& text, DWORD type = REG_SZ, size_t cutBytes = 0)
    {
        ASSERT_EQ(RegSetValueExW(key.get(), L"value", 0, type, reinterpret_cast<const BYTE*>(text.data()),
                                 static_cast<DWORD>(text.size() * sizeof(wchar_t) - cutBytes)),
                  ERROR_SUCCESS);
    }

    HRESULT CodeThrown(PCWSTR name)
    {
        try
        {
            wil::reg::get_value_string(key.get(), name);
            return S_OK;
        }
        catch (const wil::ResultException& exception)
        {
            return exception.GetErrorCode();
        }
    }

    // Other tests run beside this one.
    const std::wstring keyName = L"Software\\Velmora.Tests." + std::to_wstring(GetCurrentProcessId());
    wil::unique_hkey key;
};

std::wstring Terminated(std::wstring text)
{
    text.push_back(L'\0');
    return text;
}

} // namespace

TEST_F(GetValueString, reads_a_text)
{
    Write(Terminated(L"C:\\Program Files\\"));
    EXPECT_EQ(wil::reg::get_value_string(key.get(), L"value"), L"C:\\Program Files\\");
}

TEST_F(GetValueString, reads_a_text_of_any_length)
{
    for (const size_t length : {0U, 1U, 258U, 259U, 260U, 261U, 40000U})
    {
        Write(Terminated(std::wstring(length, L'x')));
        EXPECT_EQ(wil::reg::get_value_string(key.get(), L"value"), std::wstring(length, L'x')) << length;
    }
}

TEST_F(GetValueString, does_not_expand_a_text_with_variables)
{
    Write(Terminated(L"%TEMP%"), REG_EXPAND_SZ);
    EXPECT_EQ(wil::reg::get_value_string(key.get(), L"value"), L"%TEMP%");
}

TEST_F(GetValueString, copes_with_an_unterminated_text)
{
    for (const size_t length : {1U, 5U, 259U, 260U, 261U})
    {
        Write(std::wstring(length, L'x'));
        EXPECT_EQ(wil::reg::get_value_string(key.get(), L"value"), std::wstring(length, L'x')) << length;
    }
}

TEST_F(GetValueString, copes_with_no_bytes_at_all)
{
    Write(L"");
    EXPECT_EQ(wil::reg::get_value_string(key.get(), L"value"), L"");
}

TEST_F(GetValueString, ends_at_an_embedded_zero)
{
    Write(std::wstring(L"one\0two\0", 8));
    EXPECT_EQ(wil::reg::get_value_string(key.get(), L"value"), L"one");
}

TEST_F(GetValueString, copes_with_half_a_character)
{
    Write(L"xyz", REG_SZ, 1);
    EXPECT_THAT(wil::reg::get_value_string(key.get(), L"value"), testing::StartsWith(L"xy"));
}

TEST_F(GetValueString, throws_for_an_absent_value_and_one_of_another_type)
{
    const DWORD number = 1;
    RegSetValueExW(key.get(), L"number", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof(number));
    EXPECT_EQ(CodeThrown(L"absent"), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(CodeThrown(L"number"), HRESULT_FROM_WIN32(ERROR_UNSUPPORTED_TYPE));
}

TEST_F(GetValueString, throws_any_other_failure)
{
    const Fake<&RegGetValueW> get = [&](HKEY asked, PCWSTR subkey, PCWSTR name, DWORD flags, DWORD*, void*,
                                        DWORD*) -> LSTATUS {
        EXPECT_EQ(asked, key.get());
        EXPECT_EQ(subkey, nullptr);
        EXPECT_STREQ(name, L"value");
        EXPECT_EQ(flags, 0x10000006U);
        return ERROR_ACCESS_DENIED;
    };
    EXPECT_EQ(CodeThrown(L"value"), E_ACCESSDENIED);
}

TEST_F(GetValueString, reads_again_when_the_value_grows_between_two_reads)
{
    size_t length = 300;
    int calls = 0;
    const Fake<&RegGetValueW> get = [&](HKEY, PCWSTR, PCWSTR, DWORD, DWORD*, void* data, DWORD* bytes) -> LSTATUS {
        const std::wstring text = Terminated(std::wstring(length, L'x'));
        const auto needed = static_cast<DWORD>(text.size() * sizeof(wchar_t));
        const bool fits = *bytes >= needed;
        *bytes = needed;
        ++calls;
        if (!fits)
        {
            length = calls < 3 ? length * 10 : length;
            return ERROR_MORE_DATA;
        }
        std::memcpy(data, text.data(), needed);
        return ERROR_SUCCESS;
    };
    EXPECT_EQ(wil::reg::get_value_string(key.get(), L"value"), std::wstring(30000, L'x'));
    EXPECT_GE(calls, 4);
}
