#include "ui/areas_around.h"

#include <catch.hpp>

#include <tuple>
#include <vector>

using namespace velt;

namespace
{
std::vector<Area> Around(Size client, const PixelRect& child)
{
    const auto areas = AreasAround(client, child);
    return {areas.begin(), areas.end()};
}
} // namespace

TEST_CASE("AreasAround: band above, strips left and right, band below", "[ui]")
{
    CHECK(Around({100, 80}, {20, 10, 70, 50}) ==
          std::vector<Area>{{0, 0, 100, 10}, {0, 10, 20, 40}, {70, 10, 30, 40}, {0, 50, 100, 30}});
}

TEST_CASE("AreasAround: with the child they cover each pixel of the client area once", "[ui]")
{
    const auto child = GENERATE(values<PixelRect>({{3, 2, 7, 5},
                                                   {0, 0, 10, 8},
                                                   {-5, -5, 4, 4},
                                                   {6, 6, 50, 50},
                                                   {20, 20, 30, 30},
                                                   {-9, -9, -1, -1},
                                                   {5, 5, 5, 5},
                                                   {7, 6, 3, 2},
                                                   {0, 8, 0, 8},
                                                   {INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX}}));
    std::vector<int> covered(10 * 8);
    for (const Area& area : AreasAround({10, 8}, child))
    {
        REQUIRE(area.width >= 0);
        REQUIRE(area.height >= 0);
        for (std::int32_t i = 0; i < area.width * area.height; ++i)
        {
            const std::int32_t at = (area.y + i / area.width) * 10 + area.x + i % area.width;
            ++covered.at(static_cast<std::size_t>(at));
        }
    }
    for (std::int32_t y = 0; y < 8; ++y)
    {
        for (std::int32_t x = 0; x < 10; ++x)
        {
            const bool isChild =
                x >= child.left && x < child.right && y >= child.top && y < child.bottom;
            INFO(x << ", " << y);
            CHECK(covered[static_cast<std::size_t>(y * 10 + x)] == (isChild ? 0 : 1));
        }
    }
}

TEST_CASE("AreasAround: a client area without pixels has none around", "[ui]")
{
    for (const Area& area : AreasAround({-3, 0}, {1, 1, 2, 2}))
    {
        CHECK(area.width * area.height == 0);
    }
}
