#pragma once

#include <array>
#include <cstdint>

namespace velt
{
/// A time prefix of a trace line, NUL-terminated.
using TraceTimeText = std::array<char, 32>;

/// Formats microseconds from an arbitrary origin as "h:m:s.mmm : ".
///
/// By design, the hour field counts units of 2400 seconds, so minutes run up to 39.
TraceTimeText FormatTraceTime(std::uint64_t microseconds) noexcept;
} // namespace velt
