#include "Installer/Text.h"

#include "support/FakeCodePage.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>

namespace
{

using namespace Installer;
using namespace std::string_literals;
using Testing::FakeCodePage;

TEST(TextTest, EncodeUtf8_converts_valid_text)
{
    EXPECT_EQ(EncodeUtf8(L"\u00c5ngstr\u00f6m \u20ac \U0001f600"),
              "\xc3\x85ngstr\xc3\xb6m \xe2\x82\xac \xf0\x9f\x98\x80");
    EXPECT_EQ(EncodeUtf8(L"a\0b"s), "a\0b"s);
    EXPECT_EQ(EncodeUtf8(L""), "");
}

TEST(TextTest, EncodeUtf8_replaces_half_a_surrogate_pair)
{
    EXPECT_EQ(EncodeUtf8(L"\xd800 first"), "\xef\xbf\xbd first");
    EXPECT_EQ(EncodeUtf8(L"second \xdc00"), "second \xef\xbf\xbd");
    EXPECT_EQ(EncodeUtf8(L"the wrong way: \xdc00\xd800."), "the wrong way: \xef\xbf\xbd\xef\xbf\xbd.");
}

TEST(TextTest, WidenExceptionText_takes_valid_UTF_8_as_such_in_every_code_page)
{
    for (const UINT page : {1252U, 932U, static_cast<UINT>(CP_UTF8)})
    {
        SCOPED_TRACE(page);
        const FakeCodePage codePage(page);

        EXPECT_EQ(WidenExceptionText("\xc3\x85ngstr\xc3\xb6m \xe2\x82\xac \xf0\x9f\x98\x80"),
                  L"\u00c5ngstr\u00f6m \u20ac \U0001f600");
        EXPECT_EQ(WidenExceptionText("plain"), L"plain");
        EXPECT_EQ(WidenExceptionText(""), L"");
    }
}

TEST(TextTest, WidenExceptionText_takes_other_text_in_the_ANSI_code_page)
{
    {
        const FakeCodePage western(1252);
        EXPECT_EQ(WidenExceptionText("Ung\xfcltiger Wert \x80"), L"Ung\u00fcltiger Wert \u20ac");
    }
    {
        const FakeCodePage cyrillic(1251);
        EXPECT_EQ(WidenExceptionText("\xce\xf2\xea\xe0\xe7\xe0\xed\xee"),
                  L"\u041e\u0442\u043a\u0430\u0437\u0430\u043d\u043e");
    }
    {
        const FakeCodePage japanese(932);
        EXPECT_EQ(WidenExceptionText("\x93\xfa\x96\x7b"), L"\u65e5\u672c");
    }
}

TEST(TextTest, WidenExceptionText_replaces_what_is_valid_in_neither)
{
    const FakeCodePage utf8(CP_UTF8);

    EXPECT_EQ(WidenExceptionText("fine \xff not"), L"fine \ufffd not");
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
