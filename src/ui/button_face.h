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
    /// it cannot be loaded, which is tried again the next time. Changes the context's colours and
    /// stretch mode.
    void Draw(HDC target, Size button) noexcept;

private:
    bool Load() noexcept;

    UINT m_id;
    Size m_size{};
    // By design, loaded once and selected for good, into contexts that do not depend on where the
    // face was drawn first: both cost more than drawing. The contexts are closed first.
    UniqueBitmap m_faceBitmap;
    UniqueBitmap m_maskBitmap; // monochrome; 1 where the face is black
    UniqueMemoryDc m_face;
    UniqueMemoryDc m_mask;
};
} // namespace velt
