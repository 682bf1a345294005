#pragma once

#include "ui/geometry.h"

#include <windows.h>

namespace velt
{
/// Draws a button's face in three slices onto a context, at its origin and of the size `button`;
/// pure black pixels are transparent. What cannot be made is not drawn. The bitmap must not be
/// selected into a context. Changes the context's colours and stretch mode.
void DrawFace(HDC target, HBITMAP face, Size button) noexcept;
} // namespace velt
