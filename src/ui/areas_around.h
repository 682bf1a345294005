#pragma once

#include "ui/geometry.h"

#include <array>

namespace velt
{
/// The parts of a client area that a child does not cover: the band above it, the strips left and
/// right of it, the band below it. None overlap; some may be empty. A child that reaches out of the
/// client area counts as far as it lies inside.
std::array<Area, 4> AreasAround(Size client, const PixelRect& child) noexcept;
} // namespace velt
