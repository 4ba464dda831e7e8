#include "support/end_to_end/WindowCapture.h"

#include "support/common/GdiPlus.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/Owners.h"

#include <shlwapi.h>

#include <stdexcept>
#include <utility>

namespace Testing
{
namespace
{
constexpr std::uint32_t c_colour = 0xFFFFFF; // the other bits mean nothing
constexpr CLSID c_pngEncoder = {0x557cf406, 0x1a04, 0x11d3, {0x9a, 0x73, 0x00, 0x00, 0xf8, 0x1e, 0xf3, 0x2e}};

// A place in memory to draw in.
class Canvas
{
public:
    Canvas(int width, int height) : m_width(width), m_height(height), m_dc(CreateCompatibleDC(nullptr))
    {
        BITMAPINFO description{};
        description.bmiHeader.biSize = sizeof(description.bmiHeader);
        description.bmiHeader.biWidth = width;
        description.bmiHeader.biHeight = -height; // rows from the top
        description.bmiHeader.biPlanes = 1;
        description.bmiHeader.biBitCount = 32;
        void* bits = nullptr;
        m_bitmap = CreateDIBSection(m_dc, &description, DIB_RGB_COLORS, &bits, nullptr, 0);
        m_bits = static_cast<const std::uint32_t*>(bits);
        m_before = SelectObject(m_dc, m_bitmap);
        if (m_bits == nullptr)
        {
            throw std::runtime_error("There is no memory for a picture.");
        }
    }
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;
    ~Canvas()
    {
        SelectObject(m_dc, m_before);
        DeleteObject(m_bitmap);
        DeleteDC(m_dc);
    }

    HDC Dc() const { return m_dc; }

    Picture ToPicture() const
    {
        GdiFlush();
        std::vector<std::uint32_t> pixels(m_bits, m_bits + static_cast<std::size_t>(m_width * m_height));
        for (std::uint32_t& pixel : pixels)
        {
            pixel &= c_colour;
        }
        return {m_width, m_height, std::move(pixels)};
    }

private:
    int m_width;
    int m_height;
    HDC m_dc;
    HBITMAP m_bitmap = nullptr;
    HGDIOBJ m_before = nullptr;
    const std::uint32_t* m_bits = nullptr;
};

class GdiPlus
{
public:
    GdiPlus()
    {
        const Gdiplus::GdiplusStartupInput input;
        Gdiplus::GdiplusStartup(&m_token, &input, nullptr);
    }
    GdiPlus(const GdiPlus&) = delete;
    GdiPlus& operator=(const GdiPlus&) = delete;
    ~GdiPlus() { Gdiplus::GdiplusShutdown(m_token); }

private:
    ULONG_PTR m_token = 0;
};
} // namespace

bool Picture::IsPlain() const
{
    return std::ranges::all_of(m_pixels, [&](std::uint32_t pixel) { return pixel == m_pixels.front(); });
}

void Picture::SaveAsPng(const std::wstring& path) const
{
    const GdiPlus gdiPlus;
    auto pixels = m_pixels;
    Gdiplus::Bitmap bitmap(m_width, m_height, m_width * static_cast<int>(sizeof(std::uint32_t)), PixelFormat32bppRGB,
                           reinterpret_cast<BYTE*>(pixels.data()));
    // GDI+ itself takes no path of Wine's.
    IStream* made = nullptr;
    SHCreateStreamOnFileEx(path.c_str(), STGM_CREATE | STGM_WRITE, FILE_ATTRIBUTE_NORMAL, TRUE, nullptr, &made);
    const UniqueCom<IStream> stream(made);
    if (!stream || bitmap.Save(stream.get(), &c_pngEncoder, nullptr) != Gdiplus::Ok)
    {
        throw std::runtime_error("A picture cannot be written to " + ToUtf8(path));
    }
}

Picture CaptureWindow(HWND window)
{
    RECT area{};
    if (!GetClientRect(window, &area) || area.right == 0 || area.bottom == 0)
    {
        throw std::runtime_error("There is no window to take a picture of.");
    }
    const Canvas canvas(area.right, area.bottom);
    // Off the screen: what Wine gives of another program's child windows is empty.
    POINT corner{};
    ClientToScreen(window, &corner);
    HDC dc = GetDC(nullptr);
    BitBlt(canvas.Dc(), 0, 0, area.right, area.bottom, dc, corner.x, corner.y, SRCCOPY);
    ReleaseDC(nullptr, dc);
    return canvas.ToPicture();
}
} // namespace Testing
