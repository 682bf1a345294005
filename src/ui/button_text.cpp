#include "ui/button_text.h"

#include <algorithm>

namespace velt
{
namespace
{
/// What is left on one side when `length` lies in the middle of `whole`.
std::int64_t Margin(std::int64_t whole, std::int64_t length) noexcept
{
    return std::max<std::int64_t>(0, (whole - length) / 2);
}

std::int64_t Width(const PixelRect& area) noexcept
{
    return std::int64_t{area.right} - area.left;
}

std::int64_t Height(const PixelRect& area) noexcept
{
    return std::int64_t{area.bottom} - area.top;
}
} // namespace

std::optional<TwoLines> SplitAtLineFeed(std::wstring_view text) noexcept
{
    const std::size_t feed = text.find(L'\n');
    if (feed == text.npos)
    {
        return std::nullopt;
    }
    return TwoLines{text.substr(0, feed), text.substr(feed + 1)};
}

std::optional<Point> PlaceOneLine(const PixelRect& area, Size text,
                                  std::int32_t escapement) noexcept
{
    switch (escapement)
    {
    case 0:
        return Point{Coordinate(area.left + Margin(Width(area), text.width)),
                     Coordinate(area.top + Margin(Height(area), text.height))};
    case 900:
        return Point{Coordinate(area.left + Margin(Width(area), text.height)),
                     Coordinate(area.bottom - Margin(Height(area), text.width))};
    default:
        return std::nullopt;
    }
}

TwoLinePlaces PlaceTwoLines(const PixelRect& area, Size first, Size second,
                            std::int32_t escapement) noexcept
{
    const bool byWidth = escapement == 2700;
    const std::int32_t firstHeight = byWidth ? first.width : first.height;
    const std::int32_t secondHeight = byWidth ? second.width : second.height;
    const std::int32_t x = Coordinate(area.left + Margin(Width(area), second.width));
    const std::int32_t y = Coordinate(area.top + Margin(Height(area), firstHeight));
    return {{x, y}, {x, Coordinate(std::int64_t{y} + std::max(firstHeight, secondHeight) / 2)}};
}
} // namespace velt
