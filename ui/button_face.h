#pragma once

#include "ui/gdi_handles.h"
#include "ui/geometry.h"

#include <windows.h>

namespace velt
{
/// One of a button's faces: a bitmap resource of this module, whose pure black pixels are
/// transparent. It is loaded when it is first drawn.
class ButtonFace
{
public:
    explicit ButtonFace(UINT id) noexcept;

    /// Draws the face in three slices at the context's origin, of the size `button`; nothing when
    /// it cannot be loaded. Changes the context's colours and stretch mode.
    void Draw(HDC target, Size button) noexcept;

private:
    bool Load(HDC context) noexcept;

    UINT m_id;
    Size m_size{};
    // Selected for good, because selecting costs more than drawing; the contexts are closed first.
    UniqueBitmap m_faceBitmap;
    UniqueBitmap m_maskBitmap; // monochrome; 1 where the face is black
    UniqueMemoryDc m_face;
    UniqueMemoryDc m_mask;
};
} // namespace velt
