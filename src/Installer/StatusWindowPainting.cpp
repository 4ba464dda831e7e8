#include "Installer/StatusWindowPainting.h"

#include "Installer/Resources.h"

#include <uxtheme.h>

#include <wil/resource.h>

namespace Installer
{

namespace
{

using namespace Gdiplus;

// All lengths are in pixels at 96 DPI.
constexpr REAL c_dpi = 96;
constexpr REAL c_logoTop = 40;
constexpr REAL c_logoWidth = 364;
constexpr REAL c_logoHeight = 156;
constexpr REAL c_headlineTop = 175;
constexpr REAL c_headlineTopOfOtherLogos = 190;
constexpr REAL c_headlineHeight = 50;
constexpr REAL c_statusTop = 260;
constexpr REAL c_statusHeight = 20;
constexpr REAL c_barMargin = 50;
constexpr REAL c_barAboveBottom = 50;
constexpr REAL c_barHeight = 4;

constexpr REAL c_headlinePoints = 12;
constexpr REAL c_statusPoints = 9;

constexpr ARGB c_headlineColor = 0xFFFFFFFF;
constexpr ARGB c_statusColor = 0xFFC8C8C8;
constexpr ARGB c_backgroundColor = 0xFF0D0B18;
constexpr ARGB c_trackColor = 0xFF33313B;
constexpr ARGB c_progressColor = 0xFFA953FF;

// Where everything stands.
struct Layout
{
    RectF whole;
    RectF logo;
    RectF headline;
    RectF status;
    RectF track;
    RectF progress;
};

Layout LayOut(HDC dc, const RECT& area, const StatusPicture& picture)
{
    const REAL scaleX = static_cast<REAL>(GetDeviceCaps(dc, LOGPIXELSX)) / c_dpi;
    const REAL scaleY = static_cast<REAL>(GetDeviceCaps(dc, LOGPIXELSY)) / c_dpi;
    const auto left = static_cast<REAL>(area.left);
    const auto width = static_cast<REAL>(area.right - area.left);
    const auto height = static_cast<REAL>(area.bottom - area.top);
    const REAL logoWidth = c_logoWidth * scaleX;
    const REAL headlineTop = picture.logoResourceId == IDR_LOGO ? c_headlineTop : c_headlineTopOfOtherLogos;
    const REAL margin = c_barMargin * scaleX;
    const RectF track(left + margin, height - c_barAboveBottom * scaleY, width - 2 * margin, c_barHeight * scaleY);
    return {
        .whole = RectF(left, static_cast<REAL>(area.top), width, height),
        .logo = RectF((width - logoWidth) / 2, c_logoTop * scaleY, logoWidth, c_logoHeight * scaleY),
        .headline = RectF(left, headlineTop * scaleY, width, c_headlineHeight * scaleY),
        .status = RectF(left, c_statusTop * scaleY, width, c_statusHeight * scaleY),
        .track = track,
        .progress = RectF(track.X, track.Y, static_cast<REAL>(picture.progress) / 100 * track.Width, track.Height),
    };
}

UiaRect ToUiaRect(const RectF& rectangle)
{
    return {.left = static_cast<double>(rectangle.X),
            .top = static_cast<double>(rectangle.Y),
            .width = static_cast<double>(rectangle.Width),
            .height = static_cast<double>(rectangle.Height)};
}

void TellElements(const StatusPicture& picture, const Layout& layout)
{
    if (picture.elements != nullptr)
    {
        picture.elements->Headline().Update(picture.headline, ToUiaRect(layout.headline));
        picture.elements->Status().Update(picture.statusText, ToUiaRect(layout.status));
    }
}

void Draw(HDC dc, const StatusPicture& picture, const Layout& layout)
{
    Graphics graphics(dc);
    graphics.SetSmoothingMode(SmoothingModeHighQuality);
    graphics.SetTextRenderingHint(TextRenderingHintClearTypeGridFit);
    graphics.SetInterpolationMode(InterpolationModeHighQualityBicubic);
    graphics.SetCompositingQuality(CompositingQualityHighQuality);
    graphics.SetPixelOffsetMode(PixelOffsetModeHighQuality);

    const FontFamily regularFamily(L"Segoe UI");
    const FontFamily semiboldFamily(L"Segoe UI Semibold");
    const Font headlineFont(&regularFamily, c_headlinePoints, FontStyleRegular, UnitPoint);
    const Font statusFont(&semiboldFamily, c_statusPoints, FontStyleRegular, UnitPoint);
    const SolidBrush headlineBrush((Color(c_headlineColor)));
    const SolidBrush statusBrush((Color(c_statusColor)));
    const SolidBrush backgroundBrush((Color(c_backgroundColor)));
    const SolidBrush trackBrush((Color(c_trackColor)));
    const SolidBrush progressBrush((Color(c_progressColor)));
    StringFormat centered;
    centered.SetAlignment(StringAlignmentCenter);
    centered.SetLineAlignment(StringAlignmentCenter);

    graphics.FillRectangle(&backgroundBrush, layout.whole);
    if (picture.logo != nullptr)
    {
        graphics.DrawImage(picture.logo, layout.logo);
    }
    graphics.DrawString(picture.headline.c_str(), -1, &headlineFont, layout.headline, &centered, &headlineBrush);
    graphics.DrawString(picture.statusText.c_str(), -1, &statusFont, layout.status, &centered, &statusBrush);
    TellElements(picture, layout);
    graphics.FillRectangle(&trackBrush, layout.track);
    graphics.FillRectangle(&progressBrush, layout.progress);
}

// Memory to draw in, which goes to the window in one piece: nobody sees it half drawn.
class PaintBuffer
{
public:
    PaintBuffer(HDC target, const RECT& area) : m_area(area), m_dc(target)
    {
        BP_PAINTPARAMS parameters{.cbSize = sizeof(parameters),
                                  .dwFlags = BPPF_ERASE | BPPF_NOCLIP,
                                  .prcExclude = nullptr,
                                  .pBlendFunction = nullptr};
        HDC buffered = nullptr;
        m_buffer = BeginBufferedPaint(target, &area, BPBF_TOPDOWNDIB, &parameters, &buffered);
        if (m_buffer != nullptr)
        {
            m_dc = buffered;
        }
    }
    PaintBuffer(const PaintBuffer&) = delete;
    PaintBuffer& operator=(const PaintBuffer&) = delete;
    ~PaintBuffer()
    {
        if (m_buffer != nullptr)
        {
            BufferedPaintSetAlpha(m_buffer, &m_area, 255);
            EndBufferedPaint(m_buffer, TRUE);
        }
    }

    // The window's own, if there is no buffer.
    HDC Dc() const { return m_dc; }

private:
    RECT m_area;
    HDC m_dc;
    HPAINTBUFFER m_buffer = nullptr;
};

} // namespace

void PaintStatusWindow(HWND window, const StatusPicture& picture)
{
    const auto dc = wil::BeginPaint(window);
    // The whole of it, whatever part Windows asks for: usually that is the same, but a window that comes back from
    // beyond the screen's edge has only a part to paint, and its contents must not move there.
    RECT area{};
    GetClientRect(window, &area);
    const PaintBuffer buffer(dc.get(), area);
    Draw(buffer.Dc(), picture, LayOut(dc.get(), area, picture));
}

} // namespace Installer
