#include "support/common/ImportTableFake.h"
#include "support/unit/RecordedFailures.h"

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
class GetValueStringTest : public testing::Test
{
protected:
    GetValueStringTest()
    {
        RegCreateKeyExW(HKEY_CURRENT_USER, keyName.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    }
    ~GetValueStringTest() override { RegDeleteTreeW(HKEY_CURRENT_USER, keyName.c_str()); }

    // Writes exactly these characters, with no terminator but those among them.
    void Write(const std::wstring& text, DWORD type = REG_SZ, size_t cutBytes = 0)
    {
        ASSERT_EQ(RegSetValueExW(key.get(), L"value", 0, type, reinterpret_cast<const BYTE*>(text.data()),
                                 static_cast<DWORD>(text.size() * sizeof(wchar_t) - cutBytes)),
                  ERROR_SUCCESS);
    }

    std::wstring Read(PCWSTR name = L"value") const { return wil::reg::get_value_string(key.get(), name); }

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

TEST_F(GetValueStringTest, Reads_a_text_of_any_length_terminated_or_not)
{
    for (const size_t length : {0U, 1U, 5U, 258U, 259U, 260U, 261U, 40000U})
    {
        const std::wstring text(length, L'x');
        for (const std::wstring& written : {text, Terminated(text)})
        {
            Write(written);
            EXPECT_EQ(Read(), text) << length;
        }
    }
}

TEST_F(GetValueStringTest, Copes_with_what_a_text_may_be)
{
    Write(Terminated(L"%TEMP%"), REG_EXPAND_SZ);
    EXPECT_EQ(Read(), L"%TEMP%") << "not expanded";
    Write(std::wstring(L"one\0two\0", 8));
    EXPECT_EQ(Read(), L"one");
    Write(L"xyz", REG_SZ, 1);
    EXPECT_THAT(Read(), testing::StartsWith(L"xy")) << "half a character less";
}

TEST_F(GetValueStringTest, Throws_for_an_absent_value_and_one_of_another_type)
{
    const DWORD number = 1;
    RegSetValueExW(key.get(), L"number", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof(number));
    EXPECT_EQ(CodeThrownBy([&] { Read(L"absent"); }), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(CodeThrownBy([&] { Read(L"number"); }), HRESULT_FROM_WIN32(ERROR_UNSUPPORTED_TYPE));
}

TEST_F(GetValueStringTest, Throws_any_other_failure)
{
    const Fake<&RegGetValueW> get = [&](HKEY asked, PCWSTR subkey, PCWSTR name, DWORD flags, DWORD*, void*,
                                        DWORD*) -> LSTATUS {
        EXPECT_EQ(asked, key.get());
        EXPECT_EQ(subkey, nullptr);
        EXPECT_STREQ(name, L"value");
        EXPECT_EQ(flags, 0x10000006U);
        return ERROR_ACCESS_DENIED;
    };
    EXPECT_EQ(CodeThrownBy([&] { Read(L"value"); }), E_ACCESSDENIED);
}

TEST_F(GetValueStringTest, Reads_again_when_the_value_grows_between_two_reads_and_when_no_size_is_told)
{
    for (const bool isSizeTold : {true, false})
    {
        size_t length = 300;
        int calls = 0;
        const Fake<&RegGetValueW> get = [&](HKEY, PCWSTR, PCWSTR, DWORD, DWORD*, void* data, DWORD* bytes) -> LSTATUS {
            const std::wstring text = Terminated(std::wstring(length, L'x'));
            const auto needed = static_cast<DWORD>(text.size() * sizeof(wchar_t));
            if (++calls > 40)
            {
                return ERROR_TIMEOUT;
            }
            if (*bytes >= needed)
            {
                *bytes = needed;
                std::memcpy(data, text.data(), needed);
                return ERROR_SUCCESS;
            }
            *bytes = isSizeTold ? needed : 0;
            length = calls < 3 ? length * 10 : length;
            return ERROR_MORE_DATA;
        };
        EXPECT_EQ(Read(), std::wstring(30000, L'x'));
        EXPECT_GE(calls, 4);
    }
}
