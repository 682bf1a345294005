#pragma once

#include "ui/geometry.h"

#include <array>

namespace velt
{
/// The three copies that make a button of the size `button` out of a face of the size `face`, from
/// left to right. The ends keep their width of 10 pixels; all are stretched in height. Middles of
/// negative width are given as they are; a result outside the range is its nearest end.
std::array<SliceCopy, 3> PlaceButtonSlices(Size face, Size button) noexcept;
} // namespace velt
