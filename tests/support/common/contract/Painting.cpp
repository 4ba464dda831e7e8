// GDI+.
#include "support/common/GdiPlus.h"
#include "support/common/contract/Contract.h"
#include "support/common/contract/OpenObjects.h"

namespace Testing
{

namespace
{

using namespace Gdiplus;
using namespace Gdiplus::DllExports;

constexpr char c_started[] = "GdiplusStartup: it comes before everything else, and GdiplusShutdown after";

const Contract<&GdiplusStartup> s_startup{
    [](ULONG_PTR* token, const GdiplusStartupInput* input, GdiplusStartupOutput* output) {
        return Verdict{
            {token != nullptr, "a place for the token"},
            {input != nullptr && input->GdiplusVersion == 1, "GdiplusStartupInput: version 1"},
            {input == nullptr || !input->SuppressBackgroundThread || output != nullptr,
             "GdiplusStartupInput: an output where the background thread is suppressed"},
        };
    },
    [](Status status, ULONG_PTR*, const GdiplusStartupInput*, GdiplusStartupOutput*) {
        if (status == Ok)
        {
            NoteInitialized(State::GdiPlus);
        }
    }};

const Contract<&GdiplusShutdown> s_shutdown{
    [](ULONG_PTR) { return Verdict{{IsInitialized(State::GdiPlus), c_started}}; },
    [](ULONG_PTR) { NoteUninitialized(State::GdiPlus); }};

const Contract<&GdipAlloc> s_alloc = [](SIZE_T) { return Verdict{{IsInitialized(State::GdiPlus), c_started}}; };
const Contract<&GdipFree> s_free = [](void*) { return Verdict{{IsInitialized(State::GdiPlus), c_started}}; };

// An object is not judged: that of a failed construction is null, and answers each call with InvalidParameter.
Verdict JudgeCall()
{
    return {{IsInitialized(State::GdiPlus), c_started}};
}

// A call that makes an object.
Verdict JudgeCreation(const void* place)
{
    return {
        {IsInitialized(State::GdiPlus), c_started},
        {place != nullptr, "a place for the object"},
    };
}

// A choice among the values of an enumeration.
Verdict JudgeChoice(bool isKnown)
{
    return {
        {IsInitialized(State::GdiPlus), c_started},
        {isKnown, "GDI+ Enumerations: a known value"},
    };
}

const Contract<&GdipCloneBrush> s_cloneBrush = [](GpBrush*, GpBrush** clone) { return JudgeCreation(clone); };
const Contract<&GdipCloneImage> s_cloneImage = [](GpImage*, GpImage** clone) { return JudgeCreation(clone); };
const Contract<&GdipCreateBitmapFromStream> s_createBitmap = [](IStream*, GpBitmap** bitmap) {
    return JudgeCreation(bitmap);
};
const Contract<&GdipCreateFontFamilyFromName> s_createFamily =
    [](const WCHAR*, GpFontCollection*, GpFontFamily** family) { return JudgeCreation(family); };
const Contract<&GdipCreateFromHDC> s_createGraphics = [](HDC, GpGraphics** graphics) {
    return JudgeCreation(graphics);
};
const Contract<&GdipCreateSolidFill> s_createBrush = [](ARGB, GpSolidFill** brush) { return JudgeCreation(brush); };
const Contract<&GdipCreateStringFormat> s_createFormat = [](INT, LANGID, GpStringFormat** format) {
    return JudgeCreation(format);
};
const Contract<&GdipDeleteBrush> s_deleteBrush = [](GpBrush*) { return JudgeCall(); };
const Contract<&GdipDeleteFont> s_deleteFont = [](GpFont*) { return JudgeCall(); };
const Contract<&GdipDeleteFontFamily> s_deleteFamily = [](GpFontFamily*) { return JudgeCall(); };
const Contract<&GdipDeleteGraphics> s_deleteGraphics = [](GpGraphics*) { return JudgeCall(); };
const Contract<&GdipDeleteStringFormat> s_deleteFormat = [](GpStringFormat*) { return JudgeCall(); };
const Contract<&GdipDisposeImage> s_disposeImage = [](GpImage*) { return JudgeCall(); };
const Contract<&GdipDrawImageRect> s_drawImage = [](GpGraphics*, GpImage*, REAL, REAL, REAL, REAL) {
    return JudgeCall();
};
const Contract<&GdipFillRectangle> s_fillRectangle = [](GpGraphics*, GpBrush*, REAL, REAL, REAL, REAL) {
    return JudgeCall();
};

const Contract<&GdipCreateFont> s_createFont = [](const GpFontFamily*, REAL size, INT style, Unit unit, GpFont** font) {
    constexpr INT c_styles = FontStyleBoldItalic | FontStyleUnderline | FontStyleStrikeout;
    return Verdict{
        {IsInitialized(State::GdiPlus), c_started},
        {font != nullptr, "a place for the object"},
        {size > 0, "System.Drawing.Font: a size greater than 0"},
        {HasOnly(style, c_styles), "FontStyle: known styles"},
        {unit >= UnitWorld && unit <= UnitMillimeter, "Unit: a known unit"},
    };
};

const Contract<&GdipDrawString> s_drawString = [](GpGraphics*, const WCHAR* text, INT length, const GpFont*,
                                                  const RectF* area, const GpStringFormat*, const GpBrush*) {
    return Verdict{
        {IsInitialized(State::GdiPlus), c_started},
        {area != nullptr, "Graphics::DrawString: a rectangle"},
        {text != nullptr, "Graphics::DrawString: a text"},
        {length >= -1, "Graphics::DrawString: a length, or -1 for a null-terminated text"},
    };
};

const Contract<&GdipSetCompositingQuality> s_setCompositing = [](GpGraphics*, CompositingQuality quality) {
    return JudgeChoice(quality >= CompositingQualityDefault && quality <= CompositingQualityAssumeLinear);
};
const Contract<&GdipSetInterpolationMode> s_setInterpolation = [](GpGraphics*, InterpolationMode mode) {
    return JudgeChoice(mode >= InterpolationModeDefault && mode <= InterpolationModeHighQualityBicubic);
};
const Contract<&GdipSetPixelOffsetMode> s_setPixelOffset = [](GpGraphics*, PixelOffsetMode mode) {
    return JudgeChoice(mode >= PixelOffsetModeDefault && mode <= PixelOffsetModeHalf);
};
const Contract<&GdipSetSmoothingMode> s_setSmoothing = [](GpGraphics*, SmoothingMode mode) {
    return JudgeChoice(mode >= SmoothingModeDefault && mode <= SmoothingModeAntiAlias + 1);
};
const Contract<&GdipSetTextRenderingHint> s_setTextRendering = [](GpGraphics*, TextRenderingHint hint) {
    return JudgeChoice(hint >= TextRenderingHintSystemDefault && hint <= TextRenderingHintClearTypeGridFit);
};
const Contract<&GdipSetStringFormatAlign> s_setAlignment = [](GpStringFormat*, StringAlignment alignment) {
    return JudgeChoice(alignment >= StringAlignmentNear && alignment <= StringAlignmentFar);
};
const Contract<&GdipSetStringFormatLineAlign> s_setLineAlignment = [](GpStringFormat*, StringAlignment alignment) {
    return JudgeChoice(alignment >= StringAlignmentNear && alignment <= StringAlignmentFar);
};

} // namespace

} // namespace Testing
