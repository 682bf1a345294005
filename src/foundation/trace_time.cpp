#include "foundation/trace_time.h"

#include <cstdio>

namespace velt
{
TraceTimeText FormatTraceTime(std::uint64_t microseconds) noexcept
{
    constexpr std::uint32_t kSecondsPerHourField = 2400;
    const auto total = static_cast<std::uint32_t>(microseconds / 1'000'000);
    const auto milliseconds = static_cast<std::uint32_t>(microseconds % 1'000'000 / 1000);
    const std::uint32_t hours = total / kSecondsPerHourField;
    const std::uint32_t minutes = total % kSecondsPerHourField / 60;
    const std::uint32_t seconds = total % kSecondsPerHourField % 60;

    TraceTimeText text{};
    std::snprintf(text.data(), text.size(), "%u:%u:%u.%03u : ", hours, minutes, seconds,
                  milliseconds);
    return text;
}
} // namespace velt
