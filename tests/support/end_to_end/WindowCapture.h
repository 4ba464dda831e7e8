// Pictures of what windows show, of this program or another one.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Testing
{
// Rows of pixels from the top, each 0xRRGGBB.
class Picture
{
public:
    Picture() = default;
    Picture(int width, int height, std::vector<std::uint32_t> pixels)
        : m_width(width),
          m_height(height),
          m_pixels(std::move(pixels))
    {}

    int Width() const { return m_width; }
    int Height() const { return m_height; }

    // The pixel must be within the picture.
    std::uint32_t At(int x, int y) const
    {
        return m_pixels.at(static_cast<std::size_t>(y) * static_cast<std::size_t>(m_width) +
                           static_cast<std::size_t>(x));
    }

    // The first place, by rows, where what is asked of the column, the row and the colour is so.
    template <typename Wanted>
    std::optional<POINT> Find(Wanted wanted) const
    {
        for (std::size_t i = 0; i < m_pixels.size(); ++i)
        {
            const int x = static_cast<int>(i) % m_width;
            const int y = static_cast<int>(i) / m_width;
            if (wanted(x, y, m_pixels[i]))
            {
                return POINT{x, y};
            }
        }
        return std::nullopt;
    }

    // The smallest area that holds every such place; all 0 when there is none.
    template <typename Wanted>
    RECT FindArea(Wanted wanted) const
    {
        RECT area{m_width, m_height, 0, 0};
        Find([&](int x, int y, std::uint32_t colour) {
            if (wanted(x, y, colour))
            {
                area = {std::min<LONG>(area.left, x), std::min<LONG>(area.top, y), std::max<LONG>(area.right, x + 1),
                        std::max<LONG>(area.bottom, y + 1)};
            }
            return false;
        });
        return area.right == 0 ? RECT{} : area;
    }

    // Whether there is nothing in it but one colour.
    bool IsPlain() const;

    // Throws std::runtime_error when the file cannot be written.
    void SaveAsPng(const std::wstring& path) const;

    bool operator==(const Picture&) const = default;

private:
    int m_width = 0;
    int m_height = 0;
    std::vector<std::uint32_t> m_pixels;
};

// The client area of a window as it stands on the screen, with whatever covers it.
Picture CaptureWindow(HWND window);
} // namespace Testing
