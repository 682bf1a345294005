#include "tools/velt/progress_line.h"

#include "foundation/utf.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace velt::tool
{
std::string FormatElapsed(std::uint64_t elapsedMs)
{
    const std::uint64_t seconds = elapsedMs / 1000;
    const std::uint64_t minutes = seconds / 60;
    char text[40];
    if (minutes < 60)
    {
        std::snprintf(text, sizeof(text), "%u:%02u", static_cast<unsigned>(minutes),
                      static_cast<unsigned>(seconds % 60));
        return text;
    }
    std::snprintf(text, sizeof(text), ":%02u:%02u", static_cast<unsigned>(minutes % 60),
                  static_cast<unsigned>(seconds % 60));
    return std::to_string(minutes / 60) + text;
}

std::string FormatBytes(std::uint64_t bytes)
{
    constexpr std::array<const char*, 6> kUnits = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    constexpr std::uint64_t kMostBytes = 10'000;
    if (bytes < kMostBytes)
    {
        return std::to_string(bytes) + " B";
    }
    std::size_t unit = 0;
    std::uint64_t left = bytes;
    while (left / 1024 >= kMostBytes)
    {
        left /= 1024;
        ++unit;
    }
    // In tenths and without floating point, so that every number is exact.
    const std::uint64_t tenths = left / 1024 * 10 + left % 1024 * 10 / 1024;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " " + kUnits[unit];
}

std::string FormatProgressLine(const FetchProgress& progress, std::size_t width)
{
    std::string line = "[" + std::to_string(progress.done) + "/" + std::to_string(progress.total) +
                       "] " + FormatElapsed(progress.elapsedMs) + "  " +
                       FormatBytes(progress.bytes) + "  ";
    line.append(progress.phase).append("  ").append(progress.name);
    std::u16string units = Utf16FromUtf8(line);
    std::replace_if(
        units.begin(), units.end(), [](char16_t unit) { return unit < 0x20 || unit == 0x7F; },
        u' ');
    units.resize(std::min(units.size(), width));
    const auto isHigh = [](char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; };
    if (!units.empty() && isHigh(units.back()))
    {
        units.pop_back(); // its partner was cut off
    }
    while (!units.empty() && units.back() == u' ')
    {
        units.pop_back();
    }
    return Utf8FromUtf16(units);
}
} // namespace velt::tool
