#include "ui/pixel_runs.h"

#include <algorithm>

namespace velt
{
namespace
{
constexpr std::uint32_t kColourBits = 0x00FFFFFF;

// So many pixels are looked at in one go, without a branch between them, which lets the compiler
// use wide registers where the processor is known to have them.
constexpr std::ptrdiff_t kStep = 64;

bool IsKey(std::uint32_t pixel, std::uint32_t key) noexcept
{
    return (pixel & kColourBits) == key;
}

bool AreAllKey(const std::uint32_t* pixels, std::uint32_t key) noexcept
{
    std::uint32_t differences = 0;
    for (std::ptrdiff_t i = 0; i < kStep; ++i)
    {
        differences |= pixels[i] ^ key;
    }
    return (differences & kColourBits) == 0;
}

bool IsNoneKey(const std::uint32_t* pixels, std::uint32_t key) noexcept
{
    std::uint32_t borrowed = 0; // its highest bit, by a difference of nothing
    for (std::ptrdiff_t i = 0; i < kStep; ++i)
    {
        borrowed |= ((pixels[i] ^ key) & kColourBits) - 1;
    }
    return (borrowed >> 31) == 0;
}

const std::uint32_t* SkipKey(const std::uint32_t* at, const std::uint32_t* end,
                             std::uint32_t key) noexcept
{
    while (end - at >= kStep && AreAllKey(at, key))
    {
        at += kStep;
    }
    return std::find_if_not(at, end, [key](std::uint32_t pixel) { return IsKey(pixel, key); });
}

const std::uint32_t* SkipRun(const std::uint32_t* at, const std::uint32_t* end,
                             std::uint32_t key) noexcept
{
    while (end - at >= kStep && IsNoneKey(at, key))
    {
        at += kStep;
    }
    return std::find_if(at, end, [key](std::uint32_t pixel) { return IsKey(pixel, key); });
}
} // namespace

PixelRuns::PixelRuns(std::span<const std::uint32_t> pixels, std::int32_t width, std::int32_t height,
                     std::uint32_t key) noexcept
    : m_pixels(pixels.data()),
      m_width(width),
      m_height(height),
      m_key(key & kColourBits)
{
    if (width <= 0 || height <= 0 ||
        pixels.size() < static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height))
    {
        m_height = 0;
    }
}

std::size_t PixelRuns::Next(std::span<PixelRect> runs, PixelRect& bounds) noexcept
{
    std::size_t count = 0;
    while (m_y < m_height)
    {
        const std::uint32_t* const row = Row();
        const std::uint32_t* const end = row + m_width;
        for (const std::uint32_t* at = row + m_x; at != end;)
        {
            const std::uint32_t* const start = SkipKey(at, end, m_key);
            if (start == end)
            {
                break;
            }
            if (count == runs.size())
            {
                m_x = static_cast<std::int32_t>(start - row);
                return count;
            }
            at = SkipRun(start, end, m_key);
            const PixelRect run{static_cast<std::int32_t>(start - row), m_y,
                                static_cast<std::int32_t>(at - row), m_y + 1};
            runs[count++] = run;
            bounds = {std::min(bounds.left, run.left), std::min(bounds.top, run.top),
                      std::max(bounds.right, run.right), std::max(bounds.bottom, run.bottom)};
        }
        m_x = 0;
        ++m_y;
    }
    return count;
}

const std::uint32_t* PixelRuns::Row() const noexcept
{
    return m_pixels + static_cast<std::ptrdiff_t>(m_height - 1 - m_y) * m_width;
}
} // namespace velt
