#include "support/end_to_end/StatusWindowLayout.h"

#include <array>
#include <cstdio>

namespace Testing
{
namespace
{
// Names the first pixel that is as it should not be; empty when there is none, or says that the picture is another
// size.
template <typename Wrong>
std::string Check(const StatusWindowLayout& layout, const Picture& picture, Wrong isWrong)
{
    if (picture.Width() != layout.ClientWidth() || picture.Height() != layout.ClientHeight())
    {
        return std::to_string(picture.Width()) + " x " + std::to_string(picture.Height());
    }
    const auto place = picture.Find(isWrong);
    std::array<char, 64> text{};
    if (place)
    {
        std::snprintf(text.data(), text.size(), "%06X at %ld, %ld", picture.At(place->x, place->y), place->x, place->y);
    }
    return text.data();
}
} // namespace

bool Box::Touches(int x, int y) const
{
    const auto column = static_cast<float>(x);
    const auto row = static_cast<float>(y);
    return column + 1 > left && column < left + width && row + 1 > top && row < top + height;
}

bool Box::Covers(int x, int y) const
{
    const auto column = static_cast<float>(x);
    const auto row = static_cast<float>(y);
    return column >= left && column + 1 <= left + width && row >= top && row + 1 <= top + height;
}

StatusWindowLayout::StatusWindowLayout(int dotsPerInch)
    : width(dotsPerInch * 500 / 96),
      height(dotsPerInch * 340 / 96),
      logo{},
      headline{},
      status{},
      track{}
{
    // Lengths are given for 96 dots per inch.
    const auto scale = [&](float length) { return length * (static_cast<float>(dotsPerInch) / 96.0F); };
    const auto all = static_cast<float>(ClientWidth());
    logo = {(all - scale(364)) / 2, scale(40), scale(364), scale(156)};
    headline = {0, scale(175), all, scale(50)};
    status = {0, scale(260), all, scale(20)};
    track = {scale(50), static_cast<float>(ClientHeight()) - scale(50), all - 2 * scale(50), scale(4)};
}

RECT StatusWindowLayout::WindowOn(int screenWidth, int screenHeight) const
{
    const int left = screenWidth / 2 - width / 2;
    const int top = screenHeight / 2 - height / 2;
    return {left, top, left + width, top + height};
}

Box StatusWindowLayout::Progress(int percent) const
{
    return {track.left, track.top, static_cast<float>(percent) / 100 * track.width, track.height};
}

RECT InkWithin(const Box& box, const Picture& picture)
{
    return picture.FindArea(
        [&](int x, int y, std::uint32_t colour) { return box.Touches(x, y) && colour != c_backgroundColour; });
}

std::string CheckBackground(const StatusWindowLayout& layout, const Picture& picture)
{
    return Check(layout, picture, [&](int x, int y, std::uint32_t colour) {
        const bool isDrawn = layout.logo.Touches(x, y) || layout.headline.Touches(x, y) ||
                             layout.status.Touches(x, y) || layout.track.Touches(x, y);
        return !isDrawn && colour != c_backgroundColour;
    });
}

std::string CheckBar(const StatusWindowLayout& layout, const Picture& picture, int percent)
{
    const Box done = layout.Progress(percent);
    // A pixel that lies on an edge may be anything in between.
    return Check(layout, picture, [&](int x, int y, std::uint32_t colour) {
        return done.Covers(x, y) ? colour != c_progressColour
                                 : layout.track.Covers(x, y) && !done.Touches(x, y) && colour != c_trackColour;
    });
}

bool HasColour(const Box& box, const Picture& picture, std::uint32_t wanted)
{
    const auto place =
        picture.Find([&](int x, int y, std::uint32_t colour) { return box.Touches(x, y) && colour == wanted; });
    return place.has_value();
}
} // namespace Testing
