#include "tests/support/import_patch.h"
#include "tests/ui/pixels.h"
#include "ui/bitmap_region.h"

#include <catch.hpp>

#include <algorithm>
#include <vector>

using namespace velt;
using namespace velt::test;

namespace
{
constexpr COLORREF kRed = RGB(255, 0, 0);

/// A bitmap with the key's colour where `isKey` says.
template <class IsKey>
UniqueBitmap MakeBitmap(int width, int height, IsKey isKey)
{
    std::vector<std::uint32_t> bits;
    for (int y = 0; y < height; ++y)
    {
        for (int x = 0; x < width; ++x)
        {
            bits.push_back(isKey(x, y) ? 0x00FF0000 : 0x00FE0000);
        }
    }
    UniqueBitmap bitmap(::CreateBitmap(width, height, 1, 32, bits.data()));
    REQUIRE(bitmap);
    return bitmap;
}

/// The rectangles of a region, as the system keeps it.
std::vector<RECT> RectsOf(const UniqueRegion& region)
{
    std::vector<std::byte> bytes(::GetRegionData(region.Get(), 0, nullptr));
    auto* const data = reinterpret_cast<RGNDATA*>(bytes.data());
    ::GetRegionData(region.Get(), static_cast<DWORD>(bytes.size()), data);
    const auto* const rects = reinterpret_cast<const RECT*>(data->Buffer);
    return {rects, rects + data->rdh.nCount};
}

/// The bounds of what is given to the system; the left, top pair of none is the largest number.
RECT BoundsOf(const RGNDATA& data)
{
    RECT bounds{0x7FFFFFFF, 0x7FFFFFFF, 0, 0};
    const auto* const rects = reinterpret_cast<const RECT*>(data.Buffer);
    for (DWORD i = 0; i < data.rdh.nCount; ++i)
    {
        bounds = {std::min(bounds.left, rects[i].left), std::min(bounds.top, rects[i].top),
                  std::max(bounds.right, rects[i].right), std::max(bounds.bottom, rects[i].bottom)};
    }
    return bounds;
}

template <class IsKey>
int WrongPixels(const UniqueRegion& region, int width, int height, IsKey isKey)
{
    int wrong = 0;
    for (int y = 0; y < height; ++y)
    {
        for (int x = 0; x < width; ++x)
        {
            wrong += (::PtInRegion(region.Get(), x, y) == FALSE) == isKey(x, y) ? 0 : 1;
        }
    }
    return wrong;
}

using ExtCreateRegionPatch = ImportPatch<"ExtCreateRegion", decltype(::ExtCreateRegion)>;
} // namespace

TEST_CASE("RegionFromBitmap: alternating pixels are one rectangle each, top row first", "[ui]")
{
    const auto isKey = [](int x, int y) { return (x + y) % 2 == 0; };
    const UniqueBitmap bitmap = MakeBitmap(9, 4, isKey);
    const UniqueRegion region = RegionFromBitmap(bitmap.Get(), {0, 0}, {9, 4}, kRed);
    REQUIRE(region);
    CHECK(RectsOf(region).size() == 18);
    CHECK(WrongPixels(region, 9, 4, isKey) == 0);
}

TEST_CASE("RegionFromBitmap: rectangles go to the system in blocks of 2000", "[ui]")
{
    const auto [width, height, blocks] = GENERATE(table<int, int, std::vector<DWORD>>({
        {100, 90, {2000, 2000, 500}},
        {80, 100, {2000, 2000}},
        {80, 50, {2000}},
        {2, 1, {1}},
    }));
    const auto isKey = [](int x, int y) { return (x + y) % 2 == 0; };
    const UniqueBitmap bitmap = MakeBitmap(width, height, isKey);
    std::vector<DWORD> counts;
    bool isAsDescribed = true;
    UniqueRegion region;
    {
        const ExtCreateRegionPatch patch(
            "gdi32.dll", [&](const XFORM* transform, DWORD size, const RGNDATA* data) {
                const RGNDATAHEADER& header = data->rdh;
                counts.push_back(header.nCount);
                const RECT bounds = BoundsOf(*data);
                isAsDescribed = isAsDescribed && !transform && header.dwSize == 32 &&
                                header.iType == RDH_RECTANGLES && size == 32 + 16 * header.nCount &&
                                ::EqualRect(&header.rcBound, &bounds);
                return ExtCreateRegionPatch::Original(transform, size, data);
            });
        region = RegionFromBitmap(bitmap.Get(), {0, 0}, {width, height}, kRed);
    }
    REQUIRE(region);
    CHECK(counts == blocks);
    CHECK(isAsDescribed);
    CHECK(WrongPixels(region, width, height, isKey) == 0);
}

TEST_CASE("RegionFromBitmap: the memory grows by 100 rectangles at a time", "[ui]")
{
    const UniqueBitmap bitmap = MakeBitmap(50, 10, [](int x, int) { return x % 2 == 0; });
    std::vector<SIZE_T> sizes;
    std::vector<UINT> kinds;
    {
        using AllocPatch = ImportPatch<"GlobalAlloc", decltype(::GlobalAlloc)>;
        using ReAllocPatch = ImportPatch<"GlobalReAlloc", decltype(::GlobalReAlloc)>;
        const AllocPatch alloc("kernel32.dll", [&](UINT flags, SIZE_T size) {
            sizes.push_back(size);
            kinds.push_back(flags & ~static_cast<UINT>(GMEM_ZEROINIT));
            return AllocPatch::Original(flags, size);
        });
        const ReAllocPatch reAlloc("kernel32.dll", [&](HGLOBAL memory, SIZE_T size, UINT flags) {
            sizes.push_back(size);
            kinds.push_back(flags & ~static_cast<UINT>(GMEM_ZEROINIT));
            return ReAllocPatch::Original(memory, size, flags);
        });
        CHECK(RegionFromBitmap(bitmap.Get(), {0, 0}, {50, 10}, kRed));
    }
    CHECK(sizes == std::vector<SIZE_T>{1632, 3232, 4832});
    CHECK(kinds == std::vector<UINT>(3, GMEM_MOVEABLE));
}

TEST_CASE("RegionFromBitmap: nothing but the key is an empty region, none of it all", "[ui]")
{
    RECT box{};
    const UniqueBitmap red = MakeBitmap(40, 30, [](int, int) { return true; });
    UniqueRegion empty;
    {
        RECT bounds{};
        const ExtCreateRegionPatch patch(
            "gdi32.dll", [&](const XFORM* transform, DWORD size, const RGNDATA* data) {
                bounds = data->rdh.rcBound;
                return ExtCreateRegionPatch::Original(transform, size, data);
            });
        empty = RegionFromBitmap(red.Get(), {0, 0}, {40, 30}, kRed);
        const RECT none{0x7FFFFFFF, 0x7FFFFFFF, 0, 0};
        CHECK(::EqualRect(&bounds, &none));
    }
    CHECK(::GetRgnBox(empty.Get(), &box) == NULLREGION);
    const UniqueBitmap other = MakeBitmap(40, 30, [](int, int) { return false; });
    const UniqueRegion full = RegionFromBitmap(other.Get(), {0, 0}, {40, 30}, kRed);
    CHECK(::GetRgnBox(full.Get(), &box) == SIMPLEREGION);
    const RECT all{0, 0, 40, 30};
    CHECK(::EqualRect(&box, &all));
}

TEST_CASE("RegionFromBitmap: the rest of the bitmap from the source point is stretched", "[ui]")
{
    const UniqueBitmap bitmap = MakeBitmap(30, 20, [](int x, int y) { return x < 20 || y < 15; });
    const UniqueRegion region = RegionFromBitmap(bitmap.Get(), {10, 10}, {40, 20}, kRed);
    const std::vector<RECT> rects = RectsOf(region);
    REQUIRE(rects.size() == 1);
    const RECT expected{20, 10, 40, 20};
    CHECK(::EqualRect(&rects.front(), &expected));
}

TEST_CASE("RegionFromBitmap: where it is shrunk, pixels are left out and not mixed", "[ui]")
{
    const auto isEmpty = [](int keyColumn) {
        const UniqueBitmap bitmap =
            MakeBitmap(40, 4, [=](int x, int) { return x % 2 == keyColumn; });
        const UniqueRegion region = RegionFromBitmap(bitmap.Get(), {0, 0}, {20, 4}, kRed);
        RECT box{};
        return ::GetRgnBox(region.Get(), &box) == NULLREGION;
    };
    CHECK(isEmpty(0) != isEmpty(1)); // which of each two columns stays is the system's affair
}

TEST_CASE("RegionFromBitmap: another key is compared byte by byte", "[ui]")
{
    const UniqueBitmap bitmap = MakeBitmap(2, 1, [](int x, int) { return x == 0; });
    const UniqueRegion region = RegionFromBitmap(bitmap.Get(), {0, 0}, {2, 1}, RGB(254, 0, 0));
    CHECK(::PtInRegion(region.Get(), 0, 0));
    CHECK_FALSE(::PtInRegion(region.Get(), 1, 0));
}

TEST_CASE("RegionFromBitmap: none when something cannot be made", "[ui]")
{
    const UniqueBitmap bitmap = MakeBitmap(300, 2, [](int x, int) { return x % 2 == 0; });
    const auto make = [&] { return RegionFromBitmap(bitmap.Get(), {0, 0}, {300, 2}, kRed); };
    CHECK(make());
    CHECK_FALSE(RegionFromBitmap(nullptr, {0, 0}, {300, 2}, kRed));
    CHECK_FALSE(RegionFromBitmap(bitmap.Get(), {0, 0}, {0, 2}, kRed));
    CHECK_FALSE(RegionFromBitmap(bitmap.Get(), {0, 0}, {300, -2}, kRed));
    {
        const ImportPatch<"CreateCompatibleDC", decltype(::CreateCompatibleDC)> failing(
            "gdi32.dll", [](HDC) { return static_cast<HDC>(nullptr); });
        CHECK_FALSE(make());
    }
    {
        const ImportPatch<"GlobalAlloc", decltype(::GlobalAlloc)> failing(
            "kernel32.dll", [](UINT, SIZE_T) { return static_cast<HGLOBAL>(nullptr); });
        CHECK_FALSE(make());
    }
    {
        const ImportPatch<"GlobalReAlloc", decltype(::GlobalReAlloc)> failing(
            "kernel32.dll", [](HGLOBAL, SIZE_T, UINT) { return static_cast<HGLOBAL>(nullptr); });
        CHECK_FALSE(make());
        CHECK(failing.Calls() == 1);
    }
    {
        const ExtCreateRegionPatch failing("gdi32.dll", [](const XFORM*, DWORD, const RGNDATA*) {
            return static_cast<HRGN>(nullptr);
        });
        CHECK_FALSE(make());
    }
    {
        const ImportPatch<"StretchBlt", decltype(::StretchBlt)> failing(
            "gdi32.dll",
            [](HDC, int, int, int, int, HDC, int, int, int, int, DWORD) { return FALSE; });
        CHECK_FALSE(make());
    }
}
