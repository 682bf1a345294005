#pragma once

#include "ui/gdi_handles.h"
#include "ui/geometry.h"

#include <windows.h>

#include <cstdint>
#include <span>

namespace velt
{
/// A bitmap whose pixels can be read without a copy: 32 bits each, 0x00RRGGBB, the bottom row
/// first. All are black at first. Null when the size is not positive or there is no memory.
UniqueBitmap MakePixelBitmap(Size size) noexcept;

/// The pixels of a bitmap made by MakePixelBitmap, once all drawing on it is done; none when it is
/// of another kind or size. They live as long as the bitmap.
std::span<const std::uint32_t> PixelsOf(HBITMAP bitmap, Size size) noexcept;
} // namespace velt
