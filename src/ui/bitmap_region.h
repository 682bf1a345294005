#pragma once

#include "ui/gdi_handles.h"
#include "ui/geometry.h"

#include <windows.h>

namespace velt
{
/// The region of the pixels that do not have the key colour, exactly. The bitmap from `source` to
/// its lower right corner is stretched to the size `size` first. Null when it cannot be made. The
/// bitmap must not be selected into a context.
UniqueRegion RegionFromBitmap(HBITMAP bitmap, Point source, Size size, COLORREF key) noexcept;
} // namespace velt
