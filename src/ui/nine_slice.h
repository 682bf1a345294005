#pragma once

#include "ui/geometry.h"

#include <array>

namespace velt
{
/// The parts of a skin that are copied as they are, whatever the size of the result.
struct CornerSizes
{
    Size topLeft;
    Size topRight;
    Size bottomLeft;
    Size bottomRight;
};

/// The nine copies that make a picture of the size `target` out of a skin of the size `skin`, in
/// the order in which they are made: the top band from left to right, the middle band, the bottom
/// band. Corners keep their size, edges stretch along, the centre stretches both ways.
///
/// By design, a target that is smaller than two of its corners has edges of negative length: they
/// are given as they are. Any sizes are taken; a result outside the range is its nearest end.
std::array<SliceCopy, 9> PlaceNineSlices(Size skin, Size target,
                                         const CornerSizes& corners) noexcept;
} // namespace velt
