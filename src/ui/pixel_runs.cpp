#include "ui/pixel_runs.h"

#include <algorithm>

#ifdef __i386__
#include <cpuid.h>
#endif

namespace velt
{
namespace
{
constexpr std::uint32_t kColourBits = 0x00FFFFFF;

// So many pixels are looked at in one go, without a branch between them, which lets the compiler
// use wide registers.
constexpr std::ptrdiff_t kStep = 64;

bool IsKey(std::uint32_t pixel, std::uint32_t key) noexcept
{
    return (pixel & kColourBits) == key;
}

[[gnu::always_inline]] inline bool AreAllKey(const std::uint32_t* pixels,
                                             std::uint32_t key) noexcept
{
    std::uint32_t differences = 0;
    for (std::ptrdiff_t i = 0; i < kStep; ++i)
    {
        differences |= pixels[i] ^ key;
    }
    return (differences & kColourBits) == 0;
}

[[gnu::always_inline]] inline bool IsNoneKey(const std::uint32_t* pixels,
                                             std::uint32_t key) noexcept
{
    std::uint32_t borrowed = 0; // its highest bit, by a difference of nothing
    for (std::ptrdiff_t i = 0; i < kStep; ++i)
    {
        borrowed |= ((pixels[i] ^ key) & kColourBits) - 1;
    }
    return (borrowed >> 31) == 0;
}

/// Skips the steps whose pixels are all of one kind.
template <bool (*IsOfKind)(const std::uint32_t*, std::uint32_t) noexcept>
[[gnu::always_inline]] inline const std::uint32_t* SkipSteps(const std::uint32_t* at,
                                                             const std::uint32_t* end,
                                                             std::uint32_t key) noexcept
{
    while (end - at >= kStep && IsOfKind(at, key))
    {
        at += kStep;
    }
    return at;
}

#ifdef __i386__
// The processor of a 32-bit system may be without wide registers, and the system's own calls have
// stacks that are aligned to four bytes only.
#define VELT_WITH_WIDE_REGISTERS gnu::target("sse2"), gnu::force_align_arg_pointer, gnu::noinline

bool HasWideRegisters() noexcept
{
    unsigned int a = 0;
    unsigned int b = 0;
    unsigned int c = 0;
    unsigned int d = 0;
    return __get_cpuid(1, &a, &b, &c, &d) != 0 && (d & bit_SSE2) != 0;
}
#else
#define VELT_WITH_WIDE_REGISTERS

constexpr bool HasWideRegisters() noexcept
{
    return true;
}
#endif

template <bool (*IsOfKind)(const std::uint32_t*, std::uint32_t) noexcept>
[[VELT_WITH_WIDE_REGISTERS]] const std::uint32_t* SkipWideSteps(const std::uint32_t* at,
                                                                const std::uint32_t* end,
                                                                std::uint32_t key) noexcept
{
    return SkipSteps<IsOfKind>(at, end, key);
}

const std::uint32_t* SkipKey(const std::uint32_t* at, const std::uint32_t* end, std::uint32_t key,
                             bool isWide) noexcept
{
    at = isWide ? SkipWideSteps<AreAllKey>(at, end, key) : SkipSteps<AreAllKey>(at, end, key);
    return std::find_if_not(at, end, [key](std::uint32_t pixel) { return IsKey(pixel, key); });
}

const std::uint32_t* SkipRun(const std::uint32_t* at, const std::uint32_t* end, std::uint32_t key,
                             bool isWide) noexcept
{
    at = isWide ? SkipWideSteps<IsNoneKey>(at, end, key) : SkipSteps<IsNoneKey>(at, end, key);
    return std::find_if(at, end, [key](std::uint32_t pixel) { return IsKey(pixel, key); });
}
} // namespace

PixelRuns::PixelRuns(std::span<const std::uint32_t> pixels, std::int32_t width, std::int32_t height,
                     std::uint32_t key) noexcept
    : m_pixels(pixels.data()),
      m_width(width),
      m_height(height),
      m_key(key & kColourBits),
      m_isWide(HasWideRegisters())
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
            const std::uint32_t* const start = SkipKey(at, end, m_key, m_isWide);
            if (start == end)
            {
                break;
            }
            if (count == runs.size())
            {
                m_x = static_cast<std::int32_t>(start - row);
                return count;
            }
            at = SkipRun(start, end, m_key, m_isWide);
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
