#include "Installer/StatusWindowPainting.h"

#include "Installer/Resources.h"

#include <uxtheme.h>

#include <wil/resource.h>

namespace Installer
{

namespace
{

using namespace Gdiplus;

// Lengths in pixels at 96 DPI.
constexpr REAL c_dpi = 96;
constexpr REAL c_logoTop = 40;
constexpr REAL c_logoWidth = 364;
constexpr REAL c_logoHeight = 156;
constexpr REAL c_headlineTop = 175;
constexpr REAL c_headlineTopWithOtherLogo = 190;
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

struct Layout
{
    RectF whole;
    RectF logo;
    RectF headline;
    RectF status;
    RectF track;
    RectF progress;
};

Layout ComputeLayout(HDC dc, const RECT& area, const StatusWindowContent& content)
{
    const REAL scaleX = static_cast<REAL>(GetDeviceCaps(dc, LOGPIXELSX)) / c_dpi;
    const REAL scaleY = static_cast<REAL>(GetDeviceCaps(dc, LOGPIXELSY)) / c_dpi;
    const auto left = static_cast<REAL>(area.left);
    const auto width = static_cast<REAL>(area.right - area.left);
    const auto height = static_cast<REAL>(area.bottom - area.top);
    const REAL logoWidth = c_logoWidth * scaleX;
    const REAL headlineTop = content.logoResourceId == IDR_LOGO ? c_headlineTop : c_headlineTopWithOtherLogo;
    const REAL margin = c_barMargin * scaleX;
    const RectF track(left + margin, height - c_barAboveBottom * scaleY, width - 2 * margin, c_barHeight * scaleY);
    return {
        .whole = RectF(left, static_cast<REAL>(area.top), width, height),
        .logo = RectF((width - logoWidth) / 2, c_logoTop * scaleY, logoWidth, c_logoHeight * scaleY),
        .headline = RectF(left, headlineTop * scaleY, width, c_headlineHeight * scaleY),
        .status = RectF(left, c_statusTop * scaleY, width, c_statusHeight * scaleY),
        .track = track,
        .progress = RectF(track.X, track.Y, static_cast<REAL>(content.progress) / 100 * track.Width, track.Height),
    };
}

UiaRect ToUiaRect(const RectF& rectangle)
{
    return {.left = static_cast<double>(rectangle.X),
            .top = static_cast<double>(rectangle.Y),
            .width = static_cast<double>(rectangle.Width),
            .height = static_cast<double>(rectangle.Height)};
}

void UpdateAccessibility(const StatusWindowContent& content, const Layout& layout)
{
    if (content.accessibilityRoot != nullptr)
    {
        content.accessibilityRoot->Headline().Update(content.headline, ToUiaRect(layout.headline));
        content.accessibilityRoot->Status().Update(content.statusText, ToUiaRect(layout.status));
    }
}

void Draw(HDC dc, const StatusWindowContent& content, const Layout& layout)
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
    if (content.logo != nullptr)
    {
        graphics.DrawImage(content.logo, layout.logo);
    }
    graphics.DrawString(content.headline.c_str(), -1, &headlineFont, layout.headline, &centered, &headlineBrush);
    graphics.DrawString(content.statusText.c_str(), -1, &statusFont, layout.status, &centered, &statusBrush);
    UpdateAccessibility(content, layout);
    graphics.FillRectangle(&trackBrush, layout.track);
    graphics.FillRectangle(&progressBrush, layout.progress);
}

// A buffered paint: the drawing is copied to the window at once, without flicker.
class BufferedPaint
{
public:
    BufferedPaint(HDC target, const RECT& area) : m_area(area), m_dc(target)
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
    BufferedPaint(const BufferedPaint&) = delete;
    BufferedPaint& operator=(const BufferedPaint&) = delete;
    ~BufferedPaint()
    {
        if (m_buffer != nullptr)
        {
            BufferedPaintSetAlpha(m_buffer, &m_area, 255);
            EndBufferedPaint(m_buffer, TRUE);
        }
    }

    // The buffer's device context; the window's if there is no buffer.
    HDC Dc() const { return m_dc; }

private:
    RECT m_area;
    HDC m_dc;
    HPAINTBUFFER m_buffer = nullptr;
};

} // namespace

void PaintStatusWindow(HWND window, const StatusWindowContent& content)
{
    const auto dc = wil::BeginPaint(window);
    if (!dc)
    {
        return;
    }
    // The whole client area, not only the update region: the layout must not depend on what is invalid.
    RECT area{};
    GetClientRect(window, &area);
    const BufferedPaint buffer(dc.get(), area);
    Draw(buffer.Dc(), content, ComputeLayout(dc.get(), area, content));
}

} // namespace Installer
