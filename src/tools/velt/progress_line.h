#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace velt::tool
{
/// How far a fetch has come.
struct FetchProgress
{
    std::size_t done;        // exchanges that have ended
    std::size_t total;       // all of them
    std::string_view phase;  // what the one under way does
    std::uint64_t elapsedMs; // since the start of all
    std::uint64_t bytes;     // received by now, of all
    std::string_view name;   // UTF-8; what is fetched
};

/// A time as m:ss, or h:mm:ss from an hour on.
std::string FormatElapsed(std::uint64_t elapsedMs);

/// A size in the unit that leaves up to four digits before the point: "12 B", "1.5 MiB".
std::string FormatBytes(std::uint64_t bytes);

/// One line without its end, of at most `width` characters; control characters become blanks.
/// Throws std::bad_alloc only.
std::string FormatProgressLine(const FetchProgress& progress, std::size_t width);
} // namespace velt::tool
