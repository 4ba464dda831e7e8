#include "Installer/StatusWindowPainting.h"

#include "support/FakeWindowing.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using Calls = std::vector<std::string>;

class StatusWindowPaintingTest : public testing::Test
{
protected:
    void TearDown() override
    {
        logo.reset();
        EXPECT_THAT(windowing.LeftBehind(), IsEmpty());
    }

    void LoadLogo()
    {
        wil::com_ptr_nothrow<IStream> stream;
        CreateStreamOnHGlobal(nullptr, TRUE, stream.put());
        logo.emplace(stream.get());
    }

    // All calls of one painting.
    Calls Paint(std::int32_t progress = 25, int logoResourceId = 102)
    {
        windowing.journal.Take();
        PaintStatusWindow(FakeWindowing::Window(), {
                                                       .headline = headline,
                                                       .statusText = statusText,
                                                       .progress = progress,
                                                       .logoResourceId = logoResourceId,
                                                       .logo = logo ? &*logo : nullptr,
                                                       .elements = root.get(),
                                                   });
        return windowing.journal.Take();
    }

    // Those that draw.
    Calls Drawn(std::int32_t progress = 25, int logoResourceId = 102)
    {
        Calls drawn;
        for (const std::string& call : Paint(progress, logoResourceId))
        {
            if (call.starts_with("GdipDraw") || call.starts_with("GdipFill"))
            {
                drawn.push_back(call);
            }
        }
        return drawn;
    }

    void SetDpi(int x, int y)
    {
        windowing.dpiX = x;
        windowing.dpiY = y;
    }

    static std::string Bounds(AccessibleRoot::Line& element)
    {
        UiaRect bounds{};
        EXPECT_EQ(element.get_BoundingRectangle(&bounds), S_OK);
        const Journal journal;
        return journal.Describe(bounds.left) + ' ' + journal.Describe(bounds.top) + ' ' +
               journal.Describe(bounds.width) + ' ' + journal.Describe(bounds.height);
    }

    FakeWindowing windowing;
    std::wstring headline = L"Uninstalling Velmora\nThis may take a few seconds.";
    std::wstring statusText = L"Getting things ready...";
    std::optional<Gdiplus::Bitmap> logo;
    wil::com_ptr_nothrow<AccessibleRoot> root;
};

TEST_F(StatusWindowPaintingTest, makes_these_calls_at_96_DPI)
{
    LoadLogo();

    EXPECT_EQ(Paint(),
              (Calls{
                  "BeginPaint(window)",
                  "GetClientRect(window)",
                  "BeginBufferedPaint(paint dc, {0 0 498 339}, 2, 3, null, null)",
                  "GetDeviceCaps(paint dc, 88)",
                  "GetDeviceCaps(paint dc, 90)",
                  "GdipCreateFromHDC(graphics(buffer dc))",
                  "GdipSetSmoothingMode(graphics(buffer dc), 2)",
                  "GdipSetTextRenderingHint(graphics(buffer dc), 5)",
                  "GdipSetInterpolationMode(graphics(buffer dc), 7)",
                  "GdipSetCompositingQuality(graphics(buffer dc), 2)",
                  "GdipSetPixelOffsetMode(graphics(buffer dc), 2)",
                  "GdipCreateFontFamilyFromName(family(Segoe UI))",
                  "GdipCreateFontFamilyFromName(family(Segoe UI Semibold))",
                  "GdipCreateFont(font(family(Segoe UI), 12, style 0, unit 3))",
                  "GdipCreateFont(font(family(Segoe UI Semibold), 9, style 0, unit 3))",
                  "GdipCreateSolidFill(brush(ffffffff))",
                  "GdipCreateSolidFill(brush(ffc8c8c8))",
                  "GdipCreateSolidFill(brush(ff0d0b18))",
                  "GdipCreateSolidFill(brush(ff33313b))",
                  "GdipCreateSolidFill(brush(ffa953ff))",
                  "GdipCreateStringFormat(format(0, 0))",
                  "GdipSetStringFormatAlign(format(0, 0), 1)",
                  "GdipSetStringFormatLineAlign(format(0, 0), 1)",
                  "GdipFillRectangle(graphics(buffer dc), brush(ff0d0b18), 0, 0, 498, 339)",
                  "GdipDrawImageRect(graphics(buffer dc), bitmap(), 67, 40, 364, 156)",
                  "GdipDrawString(graphics(buffer dc), \"Uninstalling Velmora\nThis may take a few seconds.\", -1, "
                  "font(family(Segoe UI), 12, style 0, unit 3), 0, 175, 498, 50, format(0, 0), brush(ffffffff))",
                  "GdipDrawString(graphics(buffer dc), \"Getting things ready...\", -1, "
                  "font(family(Segoe UI Semibold), 9, style 0, unit 3), 0, 260, 498, 20, format(0, 0), "
                  "brush(ffc8c8c8))",
                  "GdipFillRectangle(graphics(buffer dc), brush(ff33313b), 50, 289, 398, 4)",
                  "GdipFillRectangle(graphics(buffer dc), brush(ffa953ff), 50, 289, 99.5, 4)",
                  "GdipDeleteStringFormat(format(0, 0))",
                  "GdipDeleteBrush(brush(ffa953ff))",
                  "GdipDeleteBrush(brush(ff33313b))",
                  "GdipDeleteBrush(brush(ff0d0b18))",
                  "GdipDeleteBrush(brush(ffc8c8c8))",
                  "GdipDeleteBrush(brush(ffffffff))",
                  "GdipDeleteFont(font(family(Segoe UI Semibold), 9, style 0, unit 3))",
                  "GdipDeleteFont(font(family(Segoe UI), 12, style 0, unit 3))",
                  "GdipDeleteFontFamily(family(Segoe UI Semibold))",
                  "GdipDeleteFontFamily(family(Segoe UI))",
                  "GdipDeleteGraphics(graphics(buffer dc))",
                  "BufferedPaintSetAlpha(buffer, {0 0 498 339}, 255)",
                  "EndBufferedPaint(buffer, 1)",
                  "EndPaint(window, paint dc, {0 0 498 339})",
              }));
}

TEST_F(StatusWindowPaintingTest, makes_every_length_half_as_long_again_at_144_DPI)
{
    LoadLogo();
    SetDpi(144, 144);
    windowing.clientArea = {0, 0, 748, 509};
    const std::string text = "GdipDrawString(graphics(buffer dc), ";

    EXPECT_EQ(Drawn(),
              (Calls{
                  "GdipFillRectangle(graphics(buffer dc), brush(ff0d0b18), 0, 0, 748, 509)",
                  "GdipDrawImageRect(graphics(buffer dc), bitmap(), 101, 60, 546, 234)",
                  text + "\"Uninstalling Velmora\nThis may take a few seconds.\", -1, "
                         "font(family(Segoe UI), 12, style 0, unit 3), 0, 262.5, 748, 75, format(0, 0), "
                         "brush(ffffffff))",
                  text + "\"Getting things ready...\", -1, font(family(Segoe UI Semibold), 9, style 0, unit 3), 0, "
                         "390, 748, 30, format(0, 0), brush(ffc8c8c8))",
                  "GdipFillRectangle(graphics(buffer dc), brush(ff33313b), 75, 434, 598, 6)",
                  "GdipFillRectangle(graphics(buffer dc), brush(ffa953ff), 75, 434, 149.5, 6)",
              }));
}

TEST_F(StatusWindowPaintingTest, scales_each_direction_by_its_own_and_with_single_precision)
{
    LoadLogo();
    SetDpi(97, 125);
    windowing.clientArea = {0, 0, 503, 441};

    const Calls drawn = Drawn(33);

    // 97 / 96 is 1.01041663 with single precision, and 125 / 96 is 1.30208337.
    ASSERT_EQ(drawn.size(), 6U);
    EXPECT_EQ(drawn[1],
              "GdipDrawImageRect(graphics(buffer dc), bitmap(), 67.6041718, 52.0833359, 367.791656, 203.125)");
    EXPECT_THAT(drawn[2], testing::HasSubstr(", 0, 227.864594, 503, 65.1041718, "));
    EXPECT_THAT(drawn[3], testing::HasSubstr(", 0, 338.541687, 503, 26.0416679, "));
    EXPECT_EQ(
        drawn[4],
        "GdipFillRectangle(graphics(buffer dc), brush(ff33313b), 50.5208321, 375.895813, 401.958344, 5.20833349)");
    EXPECT_EQ(
        drawn[5],
        "GdipFillRectangle(graphics(buffer dc), brush(ffa953ff), 50.5208321, 375.895813, 132.646255, 5.20833349)");
}

TEST_F(StatusWindowPaintingTest, starts_at_the_left_of_its_area)
{
    LoadLogo();
    windowing.clientArea = {10, 20, 210, 120};

    const Calls drawn = Drawn(50);

    ASSERT_EQ(drawn.size(), 6U);
    EXPECT_EQ(drawn[0], "GdipFillRectangle(graphics(buffer dc), brush(ff0d0b18), 10, 20, 200, 100)");
    EXPECT_EQ(drawn[1], "GdipDrawImageRect(graphics(buffer dc), bitmap(), -82, 40, 364, 156)");
    EXPECT_THAT(drawn[2], testing::HasSubstr(", 10, 175, 200, 50, "));
    EXPECT_THAT(drawn[3], testing::HasSubstr(", 10, 260, 200, 20, "));
    EXPECT_EQ(drawn[4], "GdipFillRectangle(graphics(buffer dc), brush(ff33313b), 60, 50, 100, 4)");
    EXPECT_EQ(drawn[5], "GdipFillRectangle(graphics(buffer dc), brush(ffa953ff), 60, 50, 50, 4)");
}

TEST_F(StatusWindowPaintingTest, moves_nothing_when_only_a_part_is_to_be_painted)
{
    LoadLogo();
    const Calls whole = Drawn();
    windowing.paintArea = {0, 0, 200, 339};

    EXPECT_EQ(Drawn(), whole);
    EXPECT_THAT(Paint(), Contains("BeginBufferedPaint(paint dc, {0 0 498 339}, 2, 3, null, null)"));
}

TEST_F(StatusWindowPaintingTest, fills_the_bar_in_proportion)
{
    for (const auto& [progress, width] : std::vector<std::pair<std::int32_t, std::string>>{
             {0, "0"}, {1, "3.98000002"}, {25, "99.5"}, {50, "199"}, {99, "394.019989"}, {100, "398"}})
    {
        EXPECT_EQ(Drawn(progress).back(),
                  "GdipFillRectangle(graphics(buffer dc), brush(ffa953ff), 50, 289, " + width + ", 4)");
    }
}

TEST_F(StatusWindowPaintingTest, puts_the_headline_lower_below_any_other_logo)
{
    EXPECT_THAT(Drawn(0, 103)[1], testing::HasSubstr(", 0, 190, 498, 50, "));
    EXPECT_THAT(Drawn(0, 102)[1], testing::HasSubstr(", 0, 175, 498, 50, "));
}

TEST_F(StatusWindowPaintingTest, draws_no_logo_when_there_is_none)
{
    EXPECT_THAT(Drawn(), Not(Contains(StartsWith("GdipDrawImage"))));
}

TEST_F(StatusWindowPaintingTest, draws_an_empty_text_and_a_long_one_as_they_are)
{
    statusText = L"";
    EXPECT_THAT(Drawn(), Contains(StartsWith("GdipDrawString(graphics(buffer dc), \"\", -1,")));
    statusText = std::wstring(3000, L'x');
    EXPECT_THAT(Drawn(), Contains(StartsWith("GdipDrawString(graphics(buffer dc), \"" + std::string(3000, 'x'))));
}

TEST_F(StatusWindowPaintingTest, draws_into_the_window_when_there_is_no_buffer)
{
    windowing.journal.failing = {"BeginBufferedPaint"};

    const Calls calls = Paint();

    EXPECT_THAT(calls, Contains("GdipCreateFromHDC(graphics(paint dc))"));
    EXPECT_THAT(calls, Contains(StartsWith("GdipDrawString(graphics(paint dc), ")));
    EXPECT_EQ(Calls(calls.end() - 2, calls.end()),
              (Calls{"GdipDeleteGraphics(graphics(paint dc))", "EndPaint(window, paint dc, {0 0 498 339})"}));
}

TEST_F(StatusWindowPaintingTest, ends_no_painting_that_has_not_begun)
{
    windowing.journal.failing = {"BeginPaint", "BeginBufferedPaint"};

    EXPECT_THAT(Paint(), Not(Contains(StartsWith("EndPaint"))));
}

TEST_F(StatusWindowPaintingTest, goes_on_and_loses_nothing_whatever_cannot_be_made)
{
    LoadLogo();
    for (const char* const function :
         {"GdipCreateFromHDC", "GdipCreateFontFamilyFromName", "GdipCreateFont", "GdipCreateSolidFill",
          "GdipCreateStringFormat", "GdipSetSmoothingMode", "GdipSetStringFormatAlign", "GdipFillRectangle",
          "GdipDrawImageRect", "GdipDrawString"})
    {
        windowing.journal.failing = {function};

        const Calls calls = Paint();

        EXPECT_EQ(calls.back(), "EndPaint(window, paint dc, {0 0 498 339})") << function;
        EXPECT_THAT(calls, Contains(StartsWith("GdipDrawString("))) << function;
        EXPECT_THAT(calls, Contains("EndBufferedPaint(buffer, 1)")) << function;
        EXPECT_EQ(windowing.LeftBehind(), std::vector<std::string>{"bitmap()"}) << function;
    }
}

TEST_F(StatusWindowPaintingTest, tells_the_elements_what_stands_where)
{
    root = AccessibleRoot::Create(FakeWindowing::Window());
    // Bounds are asked for on the screen.
    Fake<&GetWindowRect> getWindowRect = [](HWND, LPRECT area) -> BOOL {
        *area = {1000, 2000, 1500, 2340};
        return TRUE;
    };
    windowing.clientArea = {0, 0, 748, 509};
    SetDpi(144, 144);

    Paint();

    EXPECT_EQ(Bounds(root->Headline()), "1000 2262.5 748 75");
    EXPECT_EQ(Bounds(root->Status()), "1000 2390 748 30");
    VARIANT text{};
    root->Headline().GetPropertyValue(UIA_NamePropertyId, &text);
    EXPECT_EQ(text.bstrVal, headline);
    VariantClear(&text);
    root->Status().GetPropertyValue(UIA_NamePropertyId, &text);
    EXPECT_EQ(text.bstrVal, statusText);
    VariantClear(&text);
}

TEST_F(StatusWindowPaintingTest, tells_the_elements_between_the_texts_and_the_bar)
{
    root = AccessibleRoot::Create(FakeWindowing::Window());
    windowing.clientsListen = true;

    Calls order;
    for (const std::string& call : Paint())
    {
        if (call.starts_with("GdipDrawString") || call.starts_with("GdipFill") || call.starts_with("Uia"))
        {
            order.push_back(call.substr(0, call.find('(')));
        }
    }

    EXPECT_EQ(order, (Calls{"GdipFillRectangle", "GdipDrawString", "GdipDrawString", "UiaRaiseAutomationEvent",
                            "UiaRaiseAutomationEvent", "GdipFillRectangle", "GdipFillRectangle"}));
}

} // namespace
