// Finds the runs of any picture, in blocks of any size: painted again from them, it is the same.

#include "tests/fuzz/require.h"
#include "ui/pixel_runs.h"

#include <algorithm>
#include <vector>

using velt::test::Require;

namespace
{
constexpr std::uint32_t kKey = 0x00FF0000;

/// Two bits a pixel: the key, nearly the key, the key with a topmost byte, another colour.
std::vector<std::uint32_t> PictureFrom(const std::uint8_t* data, std::size_t size)
{
    constexpr std::uint32_t kColours[] = {kKey, 0x00FF0001, 0xA5000000 | kKey, 0};
    std::vector<std::uint32_t> pixels;
    for (std::size_t i = 0; i < size * 4; ++i)
    {
        pixels.push_back(kColours[data[i / 4] >> i % 4 * 2 & 3]);
    }
    return pixels;
}

void CheckRun(const velt::PixelRect& run, const velt::PixelRect* before, std::int32_t width,
              std::int32_t height)
{
    Require(run.left >= 0 && run.left < run.right && run.right <= width);
    Require(run.top >= 0 && run.bottom == run.top + 1 && run.bottom <= height);
    // In order, and never next to each other, which would be one run.
    Require(!before || before->top < run.top ||
            (before->top == run.top && before->right < run.left));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 4)
    {
        return 0;
    }
    const std::int32_t width = data[0] | data[1] << 8;
    const std::size_t blockSize = 1U + data[2];
    const std::vector<std::uint32_t> pixels = PictureFrom(data + 3, size - 3);
    const auto height =
        width == 0 ? 1 : static_cast<std::int32_t>(pixels.size()) / width + data[3] % 2;

    std::vector<std::uint32_t> painted(pixels.size(), kKey);
    std::vector<velt::PixelRect> block(blockSize);
    velt::PixelRect bounds = velt::PixelRuns::kNoBounds;
    velt::PixelRect widest = velt::PixelRuns::kNoBounds;
    velt::PixelRuns runs(pixels, width, height, kKey);
    std::vector<velt::PixelRect> all;
    for (std::size_t count = blockSize; count == blockSize;)
    {
        count = runs.Next(block, bounds);
        Require(count <= blockSize);
        for (std::size_t i = 0; i < count; ++i)
        {
            CheckRun(block[i], all.empty() ? nullptr : &all.back(), width, height);
            all.push_back(block[i]);
        }
    }
    for (const velt::PixelRect& run : all)
    {
        widest = {std::min(widest.left, run.left), std::min(widest.top, run.top),
                  std::max(widest.right, run.right), std::max(widest.bottom, run.bottom)};
        for (std::int32_t x = run.left; x < run.right; ++x)
        {
            painted.at(static_cast<std::size_t>((height - 1 - run.top) * width + x)) = 0;
        }
    }
    Require(bounds == widest);
    const auto inside = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
    if (width > 0 && inside <= pixels.size())
    {
        for (std::size_t i = 0; i < inside; ++i)
        {
            Require((painted[i] == kKey) == ((pixels[i] & 0xFFFFFF) == kKey));
        }
    }
    else
    {
        Require(all.empty());
    }
    return 0;
}
