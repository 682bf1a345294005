// Finding the runs of a skin's pixels, beside a search of the same bytes by the run-time's memchr.
// A program for the build machine itself, without sanitizers.

#include "tests/benchmarks/paired.h"
#include "tests/benchmarks/table.h"
#include "ui/pixel_runs.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace
{
constexpr std::int32_t kWidth = 1920;
constexpr std::int32_t kHeight = 1080;
constexpr std::uint32_t kKey = 0x00FF0000;
constexpr int kOperations = 10;

/// A window with round corners and a face of many colours, none of which has the byte 0xA5.
std::vector<std::uint32_t> Skin()
{
    constexpr std::int32_t kRadius = 24;
    std::vector<std::uint32_t> pixels;
    for (std::int32_t y = 0; y < kHeight; ++y)
    {
        for (std::int32_t x = 0; x < kWidth; ++x)
        {
            const std::int32_t dx = x < kRadius             ? kRadius - x
                                    : x >= kWidth - kRadius ? x - (kWidth - kRadius - 1)
                                                            : 0;
            const std::int32_t dy = y < kRadius              ? kRadius - y
                                    : y >= kHeight - kRadius ? y - (kHeight - kRadius - 1)
                                                             : 0;
            const bool isOutside = dx * dx + dy * dy > kRadius * kRadius;
            const auto shade = static_cast<std::uint32_t>((x ^ y) & 0x7F);
            pixels.push_back(isOutside ? kKey : shade << 16 | shade << 8 | 0x60);
        }
    }
    return pixels;
}

std::size_t CountRuns(const std::vector<std::uint32_t>& pixels)
{
    std::vector<velt::PixelRect> block(2000);
    velt::PixelRect bounds = velt::PixelRuns::kNoBounds;
    velt::PixelRuns runs(pixels, kWidth, kHeight, kKey);
    std::size_t all = 0;
    for (std::size_t count = block.size(); count == block.size();)
    {
        count = runs.Next(block, bounds);
        all += count;
    }
    return all;
}
} // namespace

int main()
{
    const std::vector<std::uint32_t> pixels = Skin();
    volatile std::size_t sink = 0; // so that nothing is left out
    const auto times = velt::bench::MeasurePaired(
        101, kOperations,
        [&] {
            for (int i = 0; i < kOperations; ++i)
            {
                sink = CountRuns(pixels);
            }
        },
        [&] {
            for (int i = 0; i < kOperations; ++i)
            {
                sink = std::memchr(pixels.data(), 0xA5, pixels.size() * 4) != nullptr ? 1U : 0U;
            }
        });
    if (CountRuns(pixels) != kHeight || sink != 0)
    {
        std::fprintf(stderr, "bench: not the runs of the picture\n");
        return EXIT_FAILURE;
    }
    velt::bench::PrintHeading("");
    std::printf("\n");
    velt::bench::PrintRow("runs of pixels, 1920 x 1080 (native)", "memchr through the same bytes",
                          times, "<= 2.00");
    return EXIT_SUCCESS;
}
