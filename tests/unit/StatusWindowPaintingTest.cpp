#include "Installer/StatusWindowPainting.h"

#include "support/unit/FakeWindowThread.h"

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
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

std::string Bar(const std::string& where)
{
    return "GdipFillRectangle(graphics(buffer dc), brush(ffa953ff), " + where + ')';
}

// What is drawn, and where.
Calls Picture(const std::string& whole, const std::string& logo, const std::string& headline, const std::string& status,
              const std::string& track, const std::string& bar)
{
    return {"GdipFillRectangle(graphics(buffer dc), brush(ff0d0b18), " + whole + ')',
            "GdipDrawImageRect(graphics(buffer dc), bitmap(), " + logo + ')',
            "GdipDrawString(graphics(buffer dc), \"Two\nlines\", -1, font(family(Segoe UI), 12, style 0, unit 3), " +
                headline + ", format(0, 0), brush(ffffffff))",
            "GdipDrawString(graphics(buffer dc), \"text\", -1, "
            "font(family(Segoe UI Semibold), 9, style 0, unit 3), " +
                status + ", format(0, 0), brush(ffc8c8c8))",
            "GdipFillRectangle(graphics(buffer dc), brush(ff33313b), " + track + ')',
            Bar(bar)};
}

class StatusWindowPaintingTest : public testing::Test
{
protected:
    StatusWindowPaintingTest()
    {
        wil::com_ptr_nothrow<IStream> empty;
        CreateStreamOnHGlobal(nullptr, TRUE, empty.put());
        logo.emplace(empty.get());
    }

    void TearDown() override
    {
        logo.reset();
        EXPECT_THAT(windowing.LeftBehind(), IsEmpty());
    }

    // All calls of one painting.
    Calls Paint(std::int32_t progress = 25, int logoResourceId = 102)
    {
        journal.Take();
        PaintStatusWindow(FakeWindowThread::Window(), {
                                                          .headline = L"Two\nlines",
                                                          .statusText = L"text",
                                                          .progress = progress,
                                                          .logoResourceId = logoResourceId,
                                                          .logo = &*logo,
                                                          .accessibilityRoot = root.get(),
                                                      });
        return journal.All();
    }

    // Those that draw.
    Calls Drawn(std::int32_t progress = 25, int logoResourceId = 102)
    {
        Paint(progress, logoResourceId);
        return journal.CallsOf({"GdipFillRectangle", "GdipDrawImageRect", "GdipDrawString"});
    }

    void SetDpi(int x, int y, const RECT& clientArea)
    {
        windowing.dpiX = x;
        windowing.dpiY = y;
        windowing.clientArea = clientArea;
    }

    Journal journal;
    FakeWindowThread windowing{journal};
    std::optional<Gdiplus::Bitmap> logo;
    wil::com_ptr_nothrow<AccessibleRoot> root;
};

// Only a part is to be painted, and all is.
TEST_F(StatusWindowPaintingTest, Makes_these_calls_at_96_DPI)
{
    const Calls made{
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
    };
    Calls calls = Paint();

    std::erase_if(calls, [](const std::string& call) { // that the rest is given back is seen at the end of each test
        return call.starts_with("GdipDelete") && !call.starts_with("GdipDeleteGraphics");
    });
    EXPECT_EQ(calls,
              (made +
               Picture("0, 0, 498, 339", "67, 40, 364, 156", "0, 175, 498, 50", "0, 260, 498, 20", "50, 289, 398, 4",
                       "50, 289, 99.5, 4") +
               Calls{"GdipDeleteGraphics(graphics(buffer dc))", "BufferedPaintSetAlpha(buffer, {0 0 498 339}, 255)",
                     "EndBufferedPaint(buffer, 1)", "EndPaint(window, paint dc, {0 0 200 339})"}));
}

// 97 / 96 is 1.01041663 with single precision, and 125 / 96 is 1.30208337.
TEST_F(StatusWindowPaintingTest, Scales_each_direction_by_its_own_and_with_single_precision)
{
    SetDpi(97, 125, {0, 0, 503, 441});

    EXPECT_EQ(Drawn(33),
              Picture("0, 0, 503, 441", "67.6041718, 52.0833359, 367.791656, 203.125", "0, 227.864594, 503, 65.1041718",
                      "0, 338.541687, 503, 26.0416679", "50.5208321, 375.895813, 401.958344, 5.20833349",
                      "50.5208321, 375.895813, 132.646255, 5.20833349"));
}

TEST_F(StatusWindowPaintingTest, Starts_at_the_left_of_its_area)
{
    windowing.clientArea = {10, 20, 210, 120};

    EXPECT_EQ(Drawn(50), Picture("10, 20, 200, 100", "-82, 40, 364, 156", "10, 175, 200, 50", "10, 260, 200, 20",
                                 "60, 50, 100, 4", "60, 50, 50, 4"));
}

TEST_F(StatusWindowPaintingTest, Fills_the_bar_in_proportion)
{
    for (const auto& [progress, width] : std::vector<std::pair<std::int32_t, std::string>>{
             {0, "0"}, {1, "3.98000002"}, {50, "199"}, {99, "394.019989"}, {100, "398"}})
    {
        EXPECT_EQ(Drawn(progress).back(), Bar("50, 289, " + width + ", 4"));
    }
}

TEST_F(StatusWindowPaintingTest, Puts_the_headline_lower_below_any_other_logo)
{
    EXPECT_THAT(
        Drawn(0, 103),
        Contains(HasSubstr("\"Two\nlines\", -1, font(family(Segoe UI), 12, style 0, unit 3), 0, 190, 498, 50, ")));
}

TEST_F(StatusWindowPaintingTest, Draws_into_the_window_when_there_is_no_buffer)
{
    journal.Fail("BeginBufferedPaint");

    const Calls calls = Paint();

    EXPECT_THAT(calls, Contains("GdipCreateFromHDC(graphics(paint dc))"));
    EXPECT_THAT(calls, Contains(StartsWith("GdipDrawString(graphics(paint dc), ")));
    EXPECT_EQ(Calls(calls.end() - 2, calls.end()),
              (Calls{"GdipDeleteGraphics(graphics(paint dc))", "EndPaint(window, paint dc, {0 0 200 339})"}));
}

TEST_F(StatusWindowPaintingTest, Ends_no_painting_that_has_not_begun)
{
    journal.Fail("BeginPaint");

    EXPECT_EQ(Paint(), Calls{"BeginPaint(window)"});
}

TEST_F(StatusWindowPaintingTest, Goes_on_and_loses_nothing_whatever_cannot_be_made)
{
    for (const char* const function :
         {"GdipCreateFromHDC", "GdipCreateFontFamilyFromName", "GdipCreateFont", "GdipCreateSolidFill",
          "GdipCreateStringFormat", "GdipSetSmoothingMode", "GdipSetStringFormatAlign", "GdipFillRectangle",
          "GdipDrawImageRect", "GdipDrawString"})
    {
        SCOPED_TRACE(function);
        journal.Fail(function);

        const Calls calls = Paint();

        EXPECT_EQ(calls.back(), "EndPaint(window, paint dc, {0 0 200 339})");
        EXPECT_THAT(calls, Contains(StartsWith("GdipDrawString(")));
        EXPECT_THAT(calls, Contains("EndBufferedPaint(buffer, 1)"));
        EXPECT_THAT(windowing.LeftBehind(), ElementsAre("bitmap()"));
        journal.Fail(function, ERROR_SUCCESS, 0);
    }
}

TEST_F(StatusWindowPaintingTest, Tells_the_elements_what_stands_where_between_the_texts_and_the_bar)
{
    root = AccessibleRoot::Create(FakeWindowThread::Window());
    Fake<&GetWindowRect> atTheOrigin = [](HWND, LPRECT area) -> BOOL {
        *area = {0, 0, 748, 509};
        return TRUE;
    };
    windowing.clientsListen = true;
    Fake<&UiaRaiseAutomationEvent> raise = [&](IRawElementProviderSimple* element, EVENTID) -> HRESULT {
        auto& line = static_cast<AccessibleRoot::Line&>(*element);
        VARIANT text{};
        line.GetPropertyValue(UIA_NamePropertyId, &text);
        UiaRect bounds{};
        line.get_BoundingRectangle(&bounds);
        journal.Add(&line == &root->Headline() ? "headline" : "status", text.bstrVal, bounds.left, bounds.top,
                    bounds.width, bounds.height);
        VariantClear(&text);
        return S_OK;
    };
    SetDpi(144, 144, {0, 0, 748, 509});

    Paint();

    EXPECT_THAT(journal.CallsOf({"GdipFillRectangle", "GdipDrawString", "headline", "status"}),
                ElementsAre(StartsWith("GdipFill"), StartsWith("GdipDrawString"), StartsWith("GdipDrawString"),
                            "headline(\"Two\nlines\", 0, 262.5, 748, 75)", "status(\"text\", 0, 390, 748, 30)",
                            StartsWith("GdipFill"), StartsWith("GdipFill")));
}

} // namespace
