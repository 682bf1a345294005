#include "ui/button_face.h"

#include "ui/button_slices.h"
#include "ui/drawing_scopes.h"
#include "ui/gdi_handles.h"

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

void DrawFace(HDC target, HBITMAP face, Size button) noexcept
{
    BITMAP info{};
    const UniqueMemoryDc faceContext(::CreateCompatibleDC(target));
    const UniqueMemoryDc maskContext(::CreateCompatibleDC(target));
    if (!faceContext || !maskContext || ::GetObjectW(face, sizeof(info), &info) == 0)
    {
        return;
    }
    const UniqueBitmap mask(::CreateBitmap(info.bmWidth, info.bmHeight, 1, 1, nullptr));
    if (!mask)
    {
        return;
    }
    const SelectScope selectedFace(faceContext.Get(), face);
    const SelectScope selectedMask(maskContext.Get(), mask.Get());
    // Turned to monochrome, pixels of the background colour become 1: black ones.
    ::SetBkColor(faceContext.Get(), RGB(0, 0, 0));
    ::BitBlt(maskContext.Get(), 0, 0, info.bmWidth, info.bmHeight, faceContext.Get(), 0, 0,
             SRCCOPY);

    ::SetStretchBltMode(target, COLORONCOLOR);
    ::SetBkColor(target, RGB(255, 255, 255)); // what the mask's 1 is on the target: left as it is
    ::SetTextColor(target, RGB(0, 0, 0));
    for (const SliceCopy& slice : PlaceButtonSlices({info.bmWidth, info.bmHeight}, button))
    {
        Stretch(target, faceContext.Get(), slice, SRCINVERT);
        Stretch(target, maskContext.Get(), slice, SRCAND);
        Stretch(target, faceContext.Get(), slice, SRCINVERT);
    }
}
} // namespace velt
