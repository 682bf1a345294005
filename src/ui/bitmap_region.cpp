#include "ui/bitmap_region.h"

#include "ui/drawing_scopes.h"
#include "ui/pixel_bitmap.h"
#include "ui/pixel_runs.h"
#include "ui/run_block.h"

#include <utility>

namespace velt
{
namespace
{
/// The byte order of a pixel: 0x00RRGGBB, where a COLORREF is 0x00BBGGRR.
constexpr std::uint32_t PixelOf(COLORREF colour) noexcept
{
    return (colour & 0xFF) << 16 | (colour & 0xFF00) | (colour >> 16 & 0xFF);
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
    const auto regionOf = [&](std::span<const std::uint32_t> pixels) {
        return RegionFromRuns(PixelRuns(pixels, size.width, size.height, PixelOf(key)));
    };
    if (source == Point{0, 0})
    {
        const std::span<const std::uint32_t> pixels = PixelsOf(bitmap, size);
        if (!pixels.empty())
        {
            return regionOf(pixels); // stretched to its own size it would be the same
        }
    }
    BITMAP info{};
    const UniqueMemoryDc from(::CreateCompatibleDC(nullptr));
    const UniqueMemoryDc to(::CreateCompatibleDC(nullptr));
    const UniqueBitmap stretched = MakePixelBitmap(size);
    if (!from || !to || !stretched || ::GetObjectW(bitmap, sizeof(info), &info) == 0)
    {
        return {};
    }
    const SelectScope selectedFrom(from.Get(), bitmap);
    const SelectScope selectedTo(to.Get(), stretched.Get());
    ::SetStretchBltMode(to.Get(), COLORONCOLOR);
    if (!::StretchBlt(to.Get(), 0, 0, size.width, size.height, from.Get(), source.x, source.y,
                      info.bmWidth - source.x, info.bmHeight - source.y, SRCCOPY))
    {
        return {};
    }
    return regionOf(PixelsOf(stretched.Get(), size));
}
} // namespace velt
