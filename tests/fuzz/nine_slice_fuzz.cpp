// Places nine slices for any sizes: whatever they are, the slices fit together.

#include "tests/fuzz/require.h"
#include "ui/nine_slice.h"

#include <array>
#include <cstring>

using velt::test::Require;

namespace
{
using velt::SliceCopy;

/// Sixteen bits when `wide` is false, which are what windows have; all of the range otherwise.
std::int32_t Next(const std::uint8_t*& data, bool wide)
{
    std::int32_t value = 0;
    std::memcpy(&value, data, sizeof(value));
    data += sizeof(value);
    return wide ? value : value % 0x10000;
}

/// What holds whatever the sizes are, as long as no result is out of range.
void CheckSlices(velt::Size skin, velt::Size target, const velt::CornerSizes& corners)
{
    const auto slices = velt::PlaceNineSlices(skin, target, corners);
    const auto& [tl, top, tr, left, centre, right, bl, bottom, br] = slices;
    for (const SliceCopy* corner : {&tl, &tr, &bl, &br})
    {
        Require(corner->source.width == corner->target.width);
        Require(corner->source.height == corner->target.height);
    }
    // Each band's parts follow each other and end at the right.
    Require(top.target.x == tl.target.width && tr.target.x == top.target.x + top.target.width);
    Require(tr.target.x + tr.target.width == target.width);
    Require(right.target.x == centre.target.x + centre.target.width);
    Require(br.target.x == bottom.target.x + bottom.target.width);
    Require(br.target.x + br.target.width == target.width);
    // The bands follow each other and end at the bottom.
    Require(left.target.y == tl.target.height && centre.target.y == tl.target.height);
    Require(bl.target.y == left.target.y + left.target.height);
    Require(bl.target.y + bl.target.height == target.height);
    Require(bottom.target.y == bl.target.y && br.target.y == bl.target.y);
    // The skin is used up to its edges.
    Require(tr.source.x + tr.source.width == skin.width);
    Require(br.source.y + br.source.height == skin.height);
    Require(bl.source.y + bl.source.height == skin.height);
    Require(top.source.x + top.source.width == tr.source.x);
    Require(right.source.y + right.source.height == br.source.y);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t kNumbers = 12;
    if (size < 1 + kNumbers * sizeof(std::int32_t))
    {
        return 0;
    }
    const bool wide = data[0] % 2 != 0;
    ++data;
    std::array<std::int32_t, kNumbers> n{};
    for (auto& number : n)
    {
        number = Next(data, wide);
    }
    const velt::CornerSizes corners{{n[4], n[5]}, {n[6], n[7]}, {n[8], n[9]}, {n[10], n[11]}};
    if (wide)
    {
        velt::PlaceNineSlices({n[0], n[1]}, {n[2], n[3]}, corners); // nothing overflows
    }
    else
    {
        CheckSlices({n[0], n[1]}, {n[2], n[3]}, corners);
    }
    return 0;
}
