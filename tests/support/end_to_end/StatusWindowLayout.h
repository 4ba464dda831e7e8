// What the status window must look like at a resolution, and how a picture of it is compared with that.
#pragma once

#include "support/end_to_end/WindowCapture.h"

#include <windows.h>

#include <cstdint>
#include <string>

namespace Testing
{
inline constexpr std::uint32_t c_backgroundColour = 0x0D0B18;
inline constexpr std::uint32_t c_headlineColour = 0xFFFFFF;
inline constexpr std::uint32_t c_statusColour = 0xC8C8C8;
inline constexpr std::uint32_t c_trackColour = 0x33313B;
inline constexpr std::uint32_t c_progressColour = 0xA953FF;

// A rectangle in the window, whose edges may lie within pixels.
struct Box
{
    float left;
    float top;
    float width;
    float height;

    // Whether it has a part of the pixel, or all of it.
    bool Touches(int x, int y) const;
    bool Covers(int x, int y) const;
};

struct StatusWindowLayout
{
    // For a screen of that resolution.
    explicit StatusWindowLayout(int dotsPerInch);

    // Where the window is on the screen, and how large its client area is.
    RECT WindowOn(int screenWidth, int screenHeight) const;
    int ClientWidth() const { return width - 2; }
    int ClientHeight() const { return height - 1; }

    Box Progress(int percent) const;

    int width;
    int height;
    Box logo;
    Box headline;
    Box status;
    Box track;
};

// Where a picture has anything but the background, within a box; empty (all 0) for nowhere.
RECT InkWithin(const Box& box, const Picture& picture);

// What is wrong with a picture, in words that name pixels; each empty when nothing is.
std::string CheckBackground(const StatusWindowLayout& layout, const Picture& picture);
std::string CheckBar(const StatusWindowLayout& layout, const Picture& picture, int percent);

// Whether any pixel in the box has that colour.
bool HasColour(const Box& box, const Picture& picture, std::uint32_t wanted);
} // namespace Testing
