#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace velt
{
enum class TraceLineKind : std::uint8_t
{
    entry, // "<name> - enter"
    exit,  // "<name> - <anything else>"
    other, // a message
};

/// The level of entry and exit lines.
inline constexpr std::int32_t kTraceScopeLevel = 4;

/// A trace line taken apart. The name points into the text.
struct TraceLine
{
    TraceLineKind kind = TraceLineKind::other;
    std::size_t indentation = 0; // blanks in front, after the time prefix if there is one
    std::string_view name;       // of the function; empty for messages
};

/// Takes the text of a record apart. Every text is valid. An entry line that was given a text of
/// its own instead of "enter" looks like an exit line: the record does not tell them apart.
TraceLine ParseTraceLine(std::int32_t level, std::string_view text) noexcept;
} // namespace velt
