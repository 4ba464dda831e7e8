#include "StatusWindowLayout.h"

#include <algorithm>
#include <cstdio>

namespace Testing
{
namespace
{
std::string Pixel(const Picture& picture, int x, int y)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%06X at %d, %d", picture.At(x, y), x, y);
    return text.data();
}

// A length that is given for 96 dots per inch.
float Scale(float length, int dotsPerInch)
{
    return length * (static_cast<float>(dotsPerInch) / 96.0F);
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
    const auto scale = [&](float length) { return Scale(length, dotsPerInch); };
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
    RECT ink{picture.Width(), picture.Height(), 0, 0};
    for (int y = 0; y < picture.Height(); ++y)
    {
        for (int x = 0; x < picture.Width(); ++x)
        {
            if (box.Touches(x, y) && picture.At(x, y) != c_backgroundColour)
            {
                ink = {std::min<LONG>(ink.left, x), std::min<LONG>(ink.top, y), std::max<LONG>(ink.right, x + 1),
                       std::max<LONG>(ink.bottom, y + 1)};
            }
        }
    }
    return ink.right == 0 ? RECT{} : ink;
}

std::string CheckBackground(const StatusWindowLayout& layout, const Picture& picture)
{
    if (picture.Width() != layout.ClientWidth() || picture.Height() != layout.ClientHeight())
    {
        return std::to_string(picture.Width()) + " x " + std::to_string(picture.Height());
    }
    for (int y = 0; y < picture.Height(); ++y)
    {
        for (int x = 0; x < picture.Width(); ++x)
        {
            const bool isDrawn = layout.logo.Touches(x, y) || layout.headline.Touches(x, y) ||
                                 layout.status.Touches(x, y) || layout.track.Touches(x, y);
            if (!isDrawn && picture.At(x, y) != c_backgroundColour)
            {
                return Pixel(picture, x, y);
            }
        }
    }
    return {};
}

std::string CheckBar(const StatusWindowLayout& layout, const Picture& picture, int percent)
{
    const Box done = layout.Progress(percent);
    int seen = 0;
    for (int y = 0; y < picture.Height(); ++y)
    {
        for (int x = 0; x < picture.Width(); ++x)
        {
            // A pixel that lies on an edge may be anything in between.
            const bool isDone = done.Covers(x, y);
            const bool isTrack = layout.track.Covers(x, y) && !done.Touches(x, y);
            if ((isDone && picture.At(x, y) != c_progressColour) || (isTrack && picture.At(x, y) != c_trackColour))
            {
                return Pixel(picture, x, y);
            }
            seen += isDone || isTrack ? 1 : 0;
        }
    }
    return seen == 0 ? "no bar" : "";
}

bool HasColour(const Box& box, const Picture& picture, std::uint32_t colour)
{
    for (int y = 0; y < picture.Height(); ++y)
    {
        for (int x = 0; x < picture.Width(); ++x)
        {
            if (box.Touches(x, y) && picture.At(x, y) == colour)
            {
                return true;
            }
        }
    }
    return false;
}
} // namespace Testing
