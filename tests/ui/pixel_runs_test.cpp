#include "ui/pixel_runs.h"

#include <catch.hpp>

#include <algorithm>
#include <random>
#include <string_view>
#include <vector>

using namespace velt;

namespace
{
constexpr std::uint32_t kRed = 0x00FF0000;

/// A picture from its rows, the top one first: '#' is inside, '.' red.
std::vector<std::uint32_t> Picture(const std::vector<std::string_view>& rows)
{
    std::vector<std::uint32_t> pixels;
    for (auto row = rows.rbegin(); row != rows.rend(); ++row)
    {
        for (const char c : *row)
        {
            pixels.push_back(c == '.' ? kRed : 0x00123456);
        }
    }
    return pixels;
}

struct Found
{
    std::vector<PixelRect> runs;
    std::vector<std::size_t> blocks;
    PixelRect bounds = PixelRuns::kNoBounds;
};

Found FindAll(PixelRuns runs, std::size_t blockSize)
{
    Found found;
    std::vector<PixelRect> block(blockSize);
    std::size_t count = blockSize;
    while (count == blockSize)
    {
        count = runs.Next(block, found.bounds);
        found.blocks.push_back(count);
        found.runs.insert(found.runs.end(), block.begin(),
                          block.begin() + static_cast<std::ptrdiff_t>(count));
    }
    return found;
}

Found FindAll(const std::vector<std::string_view>& rows, std::size_t blockSize = 2000)
{
    const auto pixels = Picture(rows);
    return FindAll(PixelRuns(pixels, static_cast<std::int32_t>(rows.front().size()),
                             static_cast<std::int32_t>(rows.size()), kRed),
                   blockSize);
}

/// Pixel by pixel, the plainest way.
std::vector<PixelRect> Reference(const std::vector<std::uint32_t>& pixels, std::int32_t width,
                                 std::int32_t height, std::uint32_t key)
{
    std::vector<PixelRect> runs;
    for (std::int32_t y = 0; y < height; ++y)
    {
        bool inRun = false;
        for (std::int32_t x = 0; x < width; ++x)
        {
            const auto at = static_cast<std::size_t>((height - 1 - y) * width + x);
            if ((pixels[at] & 0xFFFFFF) == (key & 0xFFFFFF))
            {
                inRun = false;
            }
            else if (inRun)
            {
                runs.back().right = x + 1;
            }
            else
            {
                runs.push_back({x, y, x + 1, y + 1});
                inRun = true;
            }
        }
    }
    return runs;
}
} // namespace

TEST_CASE("PixelRuns: rows from the top, runs from the left, bounds around all", "[ui]")
{
    const Found found = FindAll({
        "......",
        ".##.#.",
        "......",
        "..####",
    });
    CHECK(found.runs == std::vector<PixelRect>{{1, 1, 3, 2}, {4, 1, 5, 2}, {2, 3, 6, 4}});
    CHECK(found.bounds == PixelRect{1, 1, 6, 4});
}

TEST_CASE("PixelRuns: a picture of nothing but the key has no runs", "[ui]")
{
    const Found found = FindAll({"....", "...."});
    CHECK(found.runs.empty());
    CHECK(found.bounds == PixelRuns::kNoBounds);
}

TEST_CASE("PixelRuns: a picture without the key has one run a row", "[ui]")
{
    const Found found = FindAll({"####", "####"});
    CHECK(found.runs == std::vector<PixelRect>{{0, 0, 4, 1}, {0, 1, 4, 2}});
    CHECK(found.bounds == PixelRect{0, 0, 4, 2});
}

TEST_CASE("PixelRuns: only exactly the key's colour counts; the topmost byte does not", "[ui]")
{
    const std::vector<std::uint32_t> pixels{0xFFFF0000, 0x00FE0000, 0x00FF0001, 0x00FF0100,
                                            0x80FF0000};
    const Found found = FindAll(PixelRuns(pixels, 5, 1, 0x11FF0000), 2000);
    CHECK(found.runs == std::vector<PixelRect>{{1, 0, 4, 1}});
}

TEST_CASE("PixelRuns: alternating pixels are one run each, in blocks of the room given", "[ui]")
{
    std::vector<std::uint32_t> pixels(4321 * 2);
    for (std::size_t i = 0; i < pixels.size(); ++i)
    {
        pixels[i] = i % 2 == 0 ? kRed : 0;
    }
    const Found found = FindAll(PixelRuns(pixels, 4321 * 2, 1, kRed), 2000);
    CHECK(found.runs.size() == 4321);
    CHECK(found.runs[4320] == PixelRect{8641, 0, 8642, 1});
    CHECK(found.blocks == std::vector<std::size_t>{2000, 2000, 321});
}

TEST_CASE("PixelRuns: a last block that is just full is followed by an empty one", "[ui]")
{
    const Found found = FindAll({"#.#", ".#."}, 3);
    CHECK(found.blocks == std::vector<std::size_t>{3, 0});
}

TEST_CASE("PixelRuns: without room nothing is lost", "[ui]")
{
    const auto pixels = Picture({"#.#"});
    PixelRuns runs(pixels, 3, 1, kRed);
    PixelRect bounds = PixelRuns::kNoBounds;
    CHECK(runs.Next({}, bounds) == 0);
    std::vector<PixelRect> all(5);
    CHECK(runs.Next(all, bounds) == 2);
    CHECK(runs.Next(all, bounds) == 0);
}

TEST_CASE("PixelRuns: sizes that the pixels do not fill count as no picture", "[ui]")
{
    const std::vector<std::uint32_t> pixels(12);
    const auto [width, height] = GENERATE(table<std::int32_t, std::int32_t>(
        {{4, 4}, {0, 3}, {3, 0}, {-3, -4}, {13, 1}, {INT32_MAX, INT32_MAX}, {INT32_MIN, 1}}));
    CHECK(FindAll(PixelRuns(pixels, width, height, kRed), 10).runs.empty());
    CHECK(FindAll(PixelRuns(pixels, 4, 3, kRed), 10).runs.size() == 3);
}

TEST_CASE("PixelRuns: one pixel that differs is found wherever it stands in a long row", "[ui]")
{
    constexpr std::int32_t kWidth = 300; // many are looked at together
    const auto [most, other] =
        GENERATE(table<std::uint32_t, std::uint32_t>({{kRed, 0}, {0, kRed}}));
    std::vector<std::uint32_t> pixels(kWidth, most);
    for (std::uint32_t& pixel : pixels)
    {
        pixel = other;
        INFO("at " << &pixel - pixels.data());
        REQUIRE(FindAll(PixelRuns(pixels, kWidth, 1, kRed), 2000).runs ==
                Reference(pixels, kWidth, 1, kRed));
        pixel = most;
    }
}

TEST_CASE("PixelRuns: finds what a search pixel by pixel finds, whatever the widths and blocks",
          "[ui]")
{
    std::mt19937 random(12); // the same pictures each time
    for (std::int32_t width = 1; width <= 70; ++width)
    {
        const std::int32_t height = 5;
        std::vector<std::uint32_t> pixels(static_cast<std::size_t>(width * height));
        bool isKey = false;
        for (auto& pixel : pixels)
        {
            isKey = random() % 11 == 0 ? !isKey : isKey; // runs of all lengths
            pixel = isKey ? kRed : random() % 3 == 0 ? 0x00FF00FF : 0;
        }
        for (const std::size_t blockSize : {1U, 2U, 7U, 2000U})
        {
            const Found found = FindAll(PixelRuns(pixels, width, height, kRed), blockSize);
            INFO(width << " by " << blockSize);
            REQUIRE(found.runs == Reference(pixels, width, height, kRed));
        }
    }
}
