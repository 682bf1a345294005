#include "ui/nine_slice.h"

namespace velt
{
namespace
{
std::int32_t Sum(std::int32_t a, std::int32_t b) noexcept
{
    return Coordinate(std::int64_t{a} + b);
}

std::int32_t Rest(std::int32_t whole, std::int32_t a, std::int32_t b) noexcept
{
    return Coordinate(std::int64_t{whole} - a - b);
}

/// A part of the skin that keeps its size.
SliceCopy Corner(Size size, std::int32_t sourceX, std::int32_t sourceY, std::int32_t targetX,
                 std::int32_t targetY) noexcept
{
    return {{sourceX, sourceY, size.width, size.height},
            {targetX, targetY, size.width, size.height}};
}
} // namespace

std::array<SliceCopy, 9> PlaceNineSlices(Size skin, Size target,
                                         const CornerSizes& corners) noexcept
{
    const auto& [tl, tr, bl, br] = corners;
    const std::int32_t topWidth = Rest(target.width, tl.width, tr.width);
    const std::int32_t middleHeight = Rest(target.height, bl.height, tl.height);
    const std::int32_t bottomWidth = Rest(target.width, bl.width, br.width);
    const std::int32_t skinTopWidth = Rest(skin.width, tl.width, tr.width);

    const std::int32_t skinRight = Rest(skin.width, tr.width, 0);
    const std::int32_t skinBottom = Rest(skin.height, bl.height, 0);
    const std::int32_t right = Sum(tl.width, topWidth);
    const std::int32_t bottom = Sum(tl.height, middleHeight);

    return {{
        Corner(tl, 0, 0, 0, 0),
        {{tl.width, 0, skinTopWidth, tl.height}, {tl.width, 0, topWidth, tl.height}},
        Corner(tr, skinRight, 0, right, 0),

        {{0, tl.height, tl.width, Rest(skin.height, bl.height, tl.height)},
         {0, tl.height, tl.width, middleHeight}},
        {{tl.width, tl.height, skinTopWidth, Rest(skin.height, tl.height, tr.height)},
         {tl.width, tl.height, topWidth, middleHeight}},
        {{skinRight, tr.height, tr.width, Rest(skin.height, tr.height, br.height)},
         {right, tr.height, tr.width, middleHeight}},

        Corner(bl, 0, skinBottom, 0, bottom),
        {{bl.width, skinBottom, Rest(skin.width, bl.width, br.width), bl.height},
         {bl.width, bottom, bottomWidth, bl.height}},
        Corner(br, Rest(skin.width, br.width, 0), Rest(skin.height, br.height, 0),
               Sum(bl.width, bottomWidth), bottom),
    }};
}
} // namespace velt
