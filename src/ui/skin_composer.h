#pragma once

#include "ui/gdi_handles.h"
#include "ui/nine_slice.h"

#include <windows.h>

namespace velt
{
/// A bitmap of the size `client`, made of the skin in nine slices. Whatever the screen has, it has
/// 32 bits a pixel, so that RegionFromBitmap reads its rows where they are. Null when it cannot be
/// made; a copy that fails leaves its part of it as it was. The skin must not be selected into a
/// context.
UniqueBitmap ComposeSkin(HBITMAP skin, const CornerSizes& corners, Size client) noexcept;
} // namespace velt
