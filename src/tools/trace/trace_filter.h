#pragma once

#include "tools/trace/trace_store.h"

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace velt
{
/// Whether a text contains another one. ASCII letters match in both cases; an empty part is
/// contained everywhere.
bool ContainsIgnoringCase(std::string_view text, std::string_view part) noexcept;

/// Which records a reader wants to see.
struct TraceFilter
{
    static constexpr std::int32_t kAllLevels = std::numeric_limits<std::int32_t>::max();

    std::string part; // in the text or the source, whatever its case
    std::int32_t highestLevel = kAllLevels;

    /// Malformed records have no level: the part alone decides about them.
    bool Accepts(const TraceEntry& entry) const noexcept;

    bool AcceptsAll() const noexcept
    {
        return part.empty() && highestLevel == kAllLevels;
    }

    bool operator==(const TraceFilter&) const = default;
};
} // namespace velt
