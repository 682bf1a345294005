#pragma once

#include <cstdint>

namespace velt
{
/// All in pixels, y downward. Sizes may be negative: they are what a subtraction made them.
struct Size
{
    std::int32_t width;
    std::int32_t height;

    bool operator==(const Size&) const = default;
};

struct Point
{
    std::int32_t x;
    std::int32_t y;

    bool operator==(const Point&) const = default;
};

struct Area
{
    std::int32_t x;
    std::int32_t y;
    std::int32_t width;
    std::int32_t height;

    bool operator==(const Area&) const = default;
};

/// From `left` and `top` up to, but without, `right` and `bottom`; the layout of the system's RECT.
struct PixelRect
{
    std::int32_t left;
    std::int32_t top;
    std::int32_t right;
    std::int32_t bottom;

    bool operator==(const PixelRect&) const = default;
};

/// One copy of a part of a picture to a part of another. It is stretched when the sizes differ.
struct SliceCopy
{
    Area source;
    Area target;

    bool operator==(const SliceCopy&) const = default;
};

/// A sum or difference of lengths, held within the range of a coordinate.
constexpr std::int32_t Coordinate(std::int64_t value) noexcept
{
    return value > INT32_MAX   ? INT32_MAX
           : value < INT32_MIN ? INT32_MIN
                               : static_cast<std::int32_t>(value);
}
} // namespace velt
