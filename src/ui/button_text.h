#pragma once

#include "ui/geometry.h"

#include <optional>
#include <string_view>

namespace velt
{
struct TwoLines
{
    std::wstring_view first;
    std::wstring_view second; // may hold more line feeds
};

/// Divides a text at its first line feed; none when it has none.
std::optional<TwoLines> SplitAtLineFeed(std::wstring_view text) noexcept;

/// Where the upper left corner of a text of one line goes, so that it lies centred in the area; a
/// text that is too large starts at its edge. `escapement` is the font's, in tenths of a degree:
/// 0, or 900 for a text that runs upward, whose place is its lower left corner. None for others.
std::optional<Point> PlaceOneLine(const PixelRect& area, Size text,
                                  std::int32_t escapement) noexcept;

struct TwoLinePlaces
{
    Point first;
    Point second;
};

/// Where the two lines of a text go. By design, both are centred on the second line's width, and
/// the second lies half the taller line's height below the first. With the escapement 2700, a
/// line's width takes the place of its height.
TwoLinePlaces PlaceTwoLines(const PixelRect& area, Size first, Size second,
                            std::int32_t escapement) noexcept;
} // namespace velt
