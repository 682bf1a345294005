#include "ui/bitmap_region.h"

#include "ui/drawing_scopes.h"
#include "ui/pixel_runs.h"
#include "ui/run_block.h"

namespace velt
{
namespace
{
/// The byte order of a pixel: 0x00RRGGBB, where a COLORREF is 0x00BBGGRR.
constexpr std::uint32_t PixelOf(COLORREF colour) noexcept
{
    return (colour & 0xFF) << 16 | (colour & 0xFF00) | (colour >> 16 & 0xFF);
}

BITMAPINFO PixelFormat(Size size) noexcept
{
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof(info.bmiHeader);
    info.bmiHeader.biWidth = size.width;
    info.bmiHeader.biHeight = size.height; // positive: the bottom row comes first
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    return info;
}

bool MergeInto(UniqueRegion& result, const RunBlock& block) noexcept
{
    UniqueRegion region = block.MakeRegion();
    if (!region)
    {
        return false;
    }
    if (!result)
    {
        result = std::move(region);
        return true;
    }
    return ::CombineRgn(result.Get(), result.Get(), region.Get(), RGN_OR) != ERROR;
}

UniqueRegion RegionFromRuns(PixelRuns runs) noexcept
{
    UniqueRegion result;
    RunBlock block;
    for (bool isMore = static_cast<bool>(block); isMore;)
    {
        isMore = block.TakeFrom(runs);
        if (isMore && !block.IsComplete())
        {
            if (!block.Grow())
            {
                return {};
            }
            continue;
        }
        if ((!result || block.Count() > 0) && !MergeInto(result, block))
        {
            return {};
        }
        block.Clear();
    }
    return result;
}
} // namespace

UniqueRegion RegionFromBitmap(HBITMAP bitmap, Point source, Size size, COLORREF key) noexcept
{
    BITMAP info{};
    const UniqueMemoryDc from(::CreateCompatibleDC(nullptr));
    const UniqueMemoryDc to(::CreateCompatibleDC(nullptr));
    if (!from || !to || size.width <= 0 || size.height <= 0 ||
        ::GetObjectW(bitmap, sizeof(info), &info) == 0)
    {
        return {};
    }
    const BITMAPINFO format = PixelFormat(size);
    void* bits = nullptr;
    const UniqueBitmap pixels(
        ::CreateDIBSection(to.Get(), &format, DIB_RGB_COLORS, &bits, nullptr, 0));
    if (!pixels || !bits)
    {
        return {};
    }
    const SelectScope selectedFrom(from.Get(), bitmap);
    const SelectScope selectedTo(to.Get(), pixels.Get());
    ::SetStretchBltMode(to.Get(), COLORONCOLOR);
    if (!::StretchBlt(to.Get(), 0, 0, size.width, size.height, from.Get(), source.x, source.y,
                      info.bmWidth - source.x, info.bmHeight - source.y, SRCCOPY))
    {
        return {};
    }
    ::GdiFlush(); // the pixels are read without GDI
    const std::size_t count =
        static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
    return RegionFromRuns(PixelRuns({static_cast<const std::uint32_t*>(bits), count}, size.width,
                                    size.height, PixelOf(key)));
}
} // namespace velt
