#include "ui/button_text.h"

#include <catch.hpp>

using namespace velt;

TEST_CASE("SplitAtLineFeed: divides at the first line feed", "[ui]")
{
    CHECK_FALSE(SplitAtLineFeed(L""));
    CHECK_FALSE(SplitAtLineFeed(L"one line\r"));
    const auto [text, first, second] =
        GENERATE(table<std::wstring_view, std::wstring_view, std::wstring_view>({
            {L"a\nb", L"a", L"b"},
            {L"\n", L"", L""},
            {L"\nb", L"", L"b"},
            {L"a\n", L"a", L""},
            {L"a\nb\nc", L"a", L"b\nc"},
            {L"a\r\nb", L"a\r", L"b"},
        }));
    const auto lines = SplitAtLineFeed(text);
    REQUIRE(lines);
    CHECK(lines->first == first);
    CHECK(lines->second == second);
}

TEST_CASE("PlaceOneLine: a text across lies centred, one that is too large starts at the edge",
          "[ui]")
{
    const PixelRect area{5, 5, 105, 35};
    CHECK(PlaceOneLine(area, {40, 10}, 0) == Point{35, 15});
    CHECK(PlaceOneLine(area, {41, 11}, 0) == Point{34, 14});
    CHECK(PlaceOneLine(area, {200, 50}, 0) == Point{5, 5});
    CHECK(PlaceOneLine({5, 5, -3, -3}, {40, 10}, 0) == Point{5, 5});
}

TEST_CASE("PlaceOneLine: a text upward starts at the bottom", "[ui]")
{
    const PixelRect area{5, 5, 35, 105};
    CHECK(PlaceOneLine(area, {40, 10}, 900) == Point{15, 75});
    CHECK(PlaceOneLine(area, {400, 50}, 900) == Point{5, 105});
}

TEST_CASE("PlaceOneLine: other escapements have no place", "[ui]")
{
    const auto escapement = GENERATE(1, 450, 899, 1800, 2700, 3600, -900, INT32_MIN);
    CHECK_FALSE(PlaceOneLine({0, 0, 100, 100}, {10, 10}, escapement));
}

TEST_CASE("PlaceTwoLines: both are centred on the second line, half a height apart", "[ui]")
{
    const PixelRect area{5, 5, 105, 45};
    const auto places = PlaceTwoLines(area, {80, 12}, {40, 16}, 0);
    CHECK(places.first == Point{35, 19});
    CHECK(places.second == Point{35, 27});
    const auto tallFirst = PlaceTwoLines(area, {10, 30}, {300, 16}, 900);
    CHECK(tallFirst.first == Point{5, 10});
    CHECK(tallFirst.second == Point{5, 25});
}

TEST_CASE("PlaceTwoLines: with the escapement 2700 widths take the place of heights", "[ui]")
{
    const auto places = PlaceTwoLines({5, 5, 105, 85}, {20, 12}, {40, 16}, 2700);
    CHECK(places.first == Point{35, 35});
    CHECK(places.second == Point{35, 55});
}

TEST_CASE("PlaceOneLine, PlaceTwoLines: extremes stay in range", "[ui]")
{
    const PixelRect all{INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX};
    CHECK(PlaceOneLine(all, {INT32_MIN, INT32_MIN}, 0) == Point{1073741823, 1073741823});
    CHECK(PlaceTwoLines(all, {INT32_MAX, INT32_MAX}, {0, 0}, 0).second.y == -1);
    const PixelRect far{INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX};
    CHECK(PlaceTwoLines(far, {9, 9}, {9, 9}, 0).second == Point{INT32_MAX, INT32_MAX});
}
