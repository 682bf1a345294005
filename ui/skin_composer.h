#pragma once

#include "ui/gdi_handles.h"
#include "ui/nine_slice.h"

#include <windows.h>

namespace velt
{
/// A bitmap of the size `client`, compatible with the context, made of the skin in nine slices.
/// Null when it cannot be made; a copy that fails leaves its part of it as it was. The skin must
/// not be selected into a context.
UniqueBitmap ComposeSkin(HDC context, HBITMAP skin, const CornerSizes& corners,
                         Size client) noexcept;
} // namespace velt
