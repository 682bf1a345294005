#include "ui/button_face.h"

#include "ui/button_slices.h"
#include "ui/own_module.h"

#include <utility>

namespace velt
{
namespace
{
void Stretch(HDC target, HDC source, const SliceCopy& slice, DWORD operation) noexcept
{
    const auto& [from, to] = slice;
    ::StretchBlt(target, to.x, to.y, to.width, to.height, source, from.x, from.y, from.width,
                 from.height, operation);
}
} // namespace

ButtonFace::ButtonFace(UINT id) noexcept : m_id(id) {}

void ButtonFace::Draw(HDC target, Size button) noexcept
{
    if (!m_mask && !Load())
    {
        return;
    }
    ::SetStretchBltMode(target, COLORONCOLOR);
    ::SetBkColor(target, RGB(255, 255, 255)); // what the mask's 1 is on the target: left as it is
    ::SetTextColor(target, RGB(0, 0, 0));
    for (const SliceCopy& slice : PlaceButtonSlices(m_size, button))
    {
        Stretch(target, m_face.Get(), slice, SRCINVERT);
        Stretch(target, m_mask.Get(), slice, SRCAND);
        Stretch(target, m_face.Get(), slice, SRCINVERT);
    }
}

bool ButtonFace::Load() noexcept
{
    BITMAP info{};
    UniqueBitmap face(::LoadBitmapW(OwnModule(), MAKEINTRESOURCEW(m_id)));
    if (!face || ::GetObjectW(face.Get(), sizeof(info), &info) == 0)
    {
        return false;
    }
    UniqueBitmap mask(::CreateBitmap(info.bmWidth, info.bmHeight, 1, 1, nullptr));
    UniqueMemoryDc faceContext(::CreateCompatibleDC(nullptr)); // the screen's, as the bitmap
    UniqueMemoryDc maskContext(::CreateCompatibleDC(nullptr));
    if (!faceContext || !maskContext || !mask || !::SelectObject(faceContext.Get(), face.Get()) ||
        !::SelectObject(maskContext.Get(), mask.Get()))
    {
        return false;
    }
    // Turned to monochrome, pixels of the background colour become 1: black ones.
    ::SetBkColor(faceContext.Get(), RGB(0, 0, 0));
    if (!::BitBlt(maskContext.Get(), 0, 0, info.bmWidth, info.bmHeight, faceContext.Get(), 0, 0,
                  SRCCOPY))
    {
        return false;
    }
    m_size = {info.bmWidth, info.bmHeight};
    m_faceBitmap = std::move(face);
    m_maskBitmap = std::move(mask);
    m_face = std::move(faceContext);
    m_mask = std::move(maskContext);
    return true;
}
} // namespace velt
