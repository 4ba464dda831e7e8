#include "Installer/Text.h"

#include "support/unit/FakeCodePage.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace
{

using namespace Installer;
using namespace std::string_literals;
using Testing::FakeCodePage;

// Every form of UTF-8, and a zero.
const std::string c_utf8 = "\xc3\x85ngstr\xc3\xb6m \xe2\x82\xac \xf0\x9f\x98\x80\0."s;
const std::wstring c_wide = L"\u00c5ngstr\u00f6m \u20ac \U0001f600\0."s;

TEST(ConversionTest, Converts_both_ways)
{
    EXPECT_EQ(Utf8ToWide(c_utf8), c_wide);
    EXPECT_EQ(WideToUtf8(c_wide), c_utf8);
}

// Windows refuses to convert an empty text: the contracts would notice.
TEST(ConversionTest, Gives_nothing_for_an_empty_text)
{
    EXPECT_EQ(Utf8ToWide(""), L"");
    EXPECT_EQ(WideToUtf8(L""), "");
    EXPECT_EQ(EncodeUtf8(L""), "");
    EXPECT_EQ(EncodeAnsi(L""), "");
    EXPECT_EQ(WidenExceptionText(""), L"");
}

TEST(ConversionTest, Gives_nothing_for_invalid_text)
{
    EXPECT_EQ(Utf8ToWide("fine \xff not"), L"");
    EXPECT_EQ(Utf8ToWide("\xc3"), L"");
    EXPECT_EQ(WideToUtf8(L"lone \xd800 surrogate"), "");
}

TEST(TextTest, EncodeUtf8_replaces_half_a_surrogate_pair)
{
    EXPECT_EQ(EncodeUtf8(L"\xd800 first"), "\xef\xbf\xbd first");
    EXPECT_EQ(EncodeUtf8(L"second \xdc00"), "second \xef\xbf\xbd");
    EXPECT_EQ(EncodeUtf8(L"the wrong way: \xdc00\xd800."), "the wrong way: \xef\xbf\xbd\xef\xbf\xbd.");
}

TEST(TextTest, EncodeAnsi_converts_to_the_code_page_of_the_system)
{
    {
        const FakeCodePage western(1252);
        EXPECT_EQ(EncodeAnsi(L"\u00c5ngstr\u00f6m \u20ac"), "\xc5ngstr\xf6m \x80");
        EXPECT_EQ(EncodeAnsi(L"a\0b"s), "a\0b"s);
    }
    const FakeCodePage utf8(CP_UTF8);
    EXPECT_EQ(EncodeAnsi(L"\u2212s"), "\xe2\x88\x92s");
}

TEST(TextTest, EncodeAnsi_takes_no_similar_character_for_one_that_the_code_page_does_not_have)
{
    const FakeCodePage western(1252);
    EXPECT_EQ(EncodeAnsi(L"\u2212s \uff0d\uff53 \u015b"), "?s ?? ?");
}

TEST(TextTest, WidenExceptionText_takes_valid_UTF_8_as_such_in_every_code_page)
{
    for (const UINT page : {1252U, 932U, static_cast<UINT>(CP_UTF8)})
    {
        SCOPED_TRACE(page);
        const FakeCodePage codePage(page);

        EXPECT_EQ(WidenExceptionText(c_utf8.c_str()), c_wide.substr(0, c_wide.find(L'\0')));
        EXPECT_EQ(WidenExceptionText("plain"), L"plain");
    }
}

TEST(TextTest, WidenExceptionText_takes_other_text_in_the_ANSI_code_page)
{
    const std::tuple<UINT, const char*, const wchar_t*> texts[] = {
        {1252, "Ung\xfcltiger Wert \x80", L"Ung\u00fcltiger Wert \u20ac"},
        {1251, "\xce\xf2\xea\xe0\xe7\xe0\xed\xee", L"\u041e\u0442\u043a\u0430\u0437\u0430\u043d\u043e"},
        {932, "\x93\xfa\x96\x7b", L"\u65e5\u672c"},
        {CP_UTF8, "fine \xff not", L"fine \ufffd not"}, // valid in neither
    };
    for (const auto& [page, text, wide] : texts)
    {
        const FakeCodePage codePage(page);
        EXPECT_EQ(WidenExceptionText(text), wide) << page;
    }
}

TEST(TextTest, WidenExceptionText_puts_the_text_on_one_line)
{
    const FakeCodePage western(1252);

    EXPECT_EQ(WidenExceptionText("one\r\ntwo\nthree\rfour"), L"one two three four");
    EXPECT_EQ(WidenExceptionText("one\r\n\r\ntwo\n\rthree"), L"one two three");
    EXPECT_EQ(WidenExceptionText("Access is denied.\r\n"), L"Access is denied.");
    EXPECT_EQ(WidenExceptionText("Access is denied.\n\n\r"), L"Access is denied.");
    EXPECT_EQ(WidenExceptionText("blanks  stay \r\n"), L"blanks  stay ");
    EXPECT_EQ(WidenExceptionText("Ung\xfcltig.\r\nWert\r\n"), L"Ung\u00fcltig. Wert");
    EXPECT_EQ(WidenExceptionText("\r\n"), L"");
}

} // namespace
