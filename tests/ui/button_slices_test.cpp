#include "ui/button_slices.h"

#include <catch.hpp>

#include <vector>

using namespace velt;

namespace
{
std::vector<SliceCopy> Place(Size face, Size button)
{
    const auto slices = PlaceButtonSlices(face, button);
    return {slices.begin(), slices.end()};
}
} // namespace

TEST_CASE("PlaceButtonSlices: ends of ten pixels, a stretched middle, all stretched in height",
          "[ui]")
{
    CHECK(Place({79, 23}, {100, 28}) == std::vector<SliceCopy>{
                                            {{0, 0, 10, 23}, {0, 0, 10, 28}},
                                            {{10, 0, 59, 23}, {10, 0, 80, 28}},
                                            {{69, 0, 10, 23}, {90, 0, 10, 28}},
                                        });
}

TEST_CASE("PlaceButtonSlices: a button narrower than its ends has a negative middle", "[ui]")
{
    CHECK(Place({79, 23}, {15, 23}) == std::vector<SliceCopy>{
                                           {{0, 0, 10, 23}, {0, 0, 10, 23}},
                                           {{10, 0, 59, 23}, {10, 0, -5, 23}},
                                           {{69, 0, 10, 23}, {5, 0, 10, 23}},
                                       });
}

TEST_CASE("PlaceButtonSlices: results out of range are the range's ends", "[ui]")
{
    const auto slices = PlaceButtonSlices({INT32_MIN, 1}, {INT32_MAX, 1});
    CHECK(slices[1].source.width == INT32_MIN);
    CHECK(slices[1].target.width == INT32_MAX - 20);
}
