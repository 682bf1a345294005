#include "ui/nine_slice.h"

#include <catch.hpp>

#include <vector>

using namespace velt;

namespace
{
constexpr CornerSizes kAlike{{109, 63}, {109, 63}, {109, 63}, {109, 63}};
constexpr CornerSizes kDifferent{{10, 20}, {30, 40}, {50, 60}, {70, 80}};

std::vector<SliceCopy> Place(Size skin, Size target, const CornerSizes& corners)
{
    const auto slices = PlaceNineSlices(skin, target, corners);
    return {slices.begin(), slices.end()};
}
} // namespace

TEST_CASE("PlaceNineSlices: corners keep their size, edges stretch along, the centre both ways",
          "[ui]")
{
    CHECK(Place({312, 156}, {719, 421}, kAlike) == std::vector<SliceCopy>{
                                                       {{0, 0, 109, 63}, {0, 0, 109, 63}},
                                                       {{109, 0, 94, 63}, {109, 0, 501, 63}},
                                                       {{203, 0, 109, 63}, {610, 0, 109, 63}},
                                                       {{0, 63, 109, 30}, {0, 63, 109, 295}},
                                                       {{109, 63, 94, 30}, {109, 63, 501, 295}},
                                                       {{203, 63, 109, 30}, {610, 63, 109, 295}},
                                                       {{0, 93, 109, 63}, {0, 358, 109, 63}},
                                                       {{109, 93, 94, 63}, {109, 358, 501, 63}},
                                                       {{203, 93, 109, 63}, {610, 358, 109, 63}},
                                                   });
}

TEST_CASE("PlaceNineSlices: each corner has its own size; bands follow the left corners", "[ui]")
{
    // Worked out by hand: top width 400 - 10 - 30, bottom width 400 - 50 - 70, middle height
    // 500 - 60 - 20.
    CHECK(Place({200, 300}, {400, 500}, kDifferent) == std::vector<SliceCopy>{
                                                           {{0, 0, 10, 20}, {0, 0, 10, 20}},
                                                           {{10, 0, 160, 20}, {10, 0, 360, 20}},
                                                           {{170, 0, 30, 40}, {370, 0, 30, 40}},
                                                           {{0, 20, 10, 220}, {0, 20, 10, 420}},
                                                           {{10, 20, 160, 240}, {10, 20, 360, 420}},
                                                           {{170, 40, 30, 180}, {370, 40, 30, 420}},
                                                           {{0, 240, 50, 60}, {0, 440, 50, 60}},
                                                           {{50, 240, 80, 60}, {50, 440, 280, 60}},
                                                           {{130, 220, 70, 80}, {330, 440, 70, 80}},
                                                       });
}

TEST_CASE("PlaceNineSlices: a target smaller than two corners has negative middles", "[ui]")
{
    CHECK(Place({312, 156}, {200, 100}, kAlike) == std::vector<SliceCopy>{
                                                       {{0, 0, 109, 63}, {0, 0, 109, 63}},
                                                       {{109, 0, 94, 63}, {109, 0, -18, 63}},
                                                       {{203, 0, 109, 63}, {91, 0, 109, 63}},
                                                       {{0, 63, 109, 30}, {0, 63, 109, -26}},
                                                       {{109, 63, 94, 30}, {109, 63, -18, -26}},
                                                       {{203, 63, 109, 30}, {91, 63, 109, -26}},
                                                       {{0, 93, 109, 63}, {0, 37, 109, 63}},
                                                       {{109, 93, 94, 63}, {109, 37, -18, 63}},
                                                       {{203, 93, 109, 63}, {91, 37, 109, 63}},
                                                   });
}

TEST_CASE("PlaceNineSlices: a target of the skin's size is the skin", "[ui]")
{
    for (const SliceCopy& slice : PlaceNineSlices({312, 156}, {312, 156}, kAlike))
    {
        CHECK(slice.source == slice.target);
    }
}

TEST_CASE("PlaceNineSlices: results out of range are the range's ends", "[ui]")
{
    const CornerSizes huge{{INT32_MAX, INT32_MAX}, {INT32_MAX, 1}, {1, INT32_MAX}, {1, 1}};
    const auto slices = PlaceNineSlices({1, 1}, {-2, -2}, huge);
    CHECK(slices[1].target.width == INT32_MIN);
    CHECK(slices[3].target.height == INT32_MIN);
    CHECK(slices[2].target.x == -1);
}
