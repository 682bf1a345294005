#pragma once

#include "ui/geometry.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace velt
{
/// Finds the runs of pixels that do not have the key colour: row by row from the top of the picture
/// down, in each from left to right. Each run is one rectangle of one pixel's height.
class PixelRuns
{
public:
    /// The bounds of no runs at all, for Next to widen.
    static constexpr PixelRect kNoBounds{INT32_MAX, INT32_MAX, 0, 0};

    /// `pixels` are 0x00RRGGBB, the topmost byte of each not looked at, nor that of the key; rows
    /// of `width` pixels follow each other from the bottom of the picture up. They must outlive
    /// this object. Too few pixels for the size, or a size that is not positive, count as no
    /// picture.
    PixelRuns(std::span<const std::uint32_t> pixels, std::int32_t width, std::int32_t height,
              std::uint32_t key) noexcept;

    /// Writes the next runs and widens the bounds by them. Returns how many they are; fewer than
    /// there is room for are the last ones.
    std::size_t Next(std::span<PixelRect> runs, PixelRect& bounds) noexcept;

private:
    const std::uint32_t* Row() const noexcept;

    const std::uint32_t* m_pixels;
    std::int32_t m_width;
    std::int32_t m_height;
    std::uint32_t m_key;
    bool m_isWide;        // whether the processor has wide registers
    std::int32_t m_x = 0; // where the search goes on
    std::int32_t m_y = 0;
};
} // namespace velt
