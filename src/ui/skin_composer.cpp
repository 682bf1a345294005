#include "ui/skin_composer.h"

#include "ui/drawing_scopes.h"
#include "ui/pixel_bitmap.h"

namespace velt
{
namespace
{
bool HasSameSize(const SliceCopy& slice) noexcept
{
    return slice.source.width == slice.target.width && slice.source.height == slice.target.height;
}

void Copy(HDC target, HDC source, const SliceCopy& slice) noexcept
{
    const auto& [from, to] = slice;
    if (HasSameSize(slice))
    {
        ::BitBlt(target, to.x, to.y, to.width, to.height, source, from.x, from.y, SRCCOPY);
    }
    else
    {
        ::StretchBlt(target, to.x, to.y, to.width, to.height, source, from.x, from.y, from.width,
                     from.height, SRCCOPY);
    }
}
} // namespace

UniqueBitmap ComposeSkin(HBITMAP skin, const CornerSizes& corners, Size client) noexcept
{
    BITMAP info{};
    const UniqueMemoryDc source(::CreateCompatibleDC(nullptr));
    const UniqueMemoryDc target(::CreateCompatibleDC(nullptr));
    UniqueBitmap composed = MakePixelBitmap(client);
    if (!source || !target || !composed || ::GetObjectW(skin, sizeof(info), &info) == 0)
    {
        return {};
    }
    const SelectScope from(source.Get(), skin);
    const SelectScope into(target.Get(), composed.Get());
    ::SetStretchBltMode(target.Get(), COLORONCOLOR);
    for (const SliceCopy& slice : PlaceNineSlices({info.bmWidth, info.bmHeight}, client, corners))
    {
        Copy(target.Get(), source.Get(), slice);
    }
    return composed;
}
} // namespace velt
