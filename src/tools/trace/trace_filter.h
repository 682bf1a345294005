#pragma once

#include "tools/trace/text_pattern.h"
#include "tools/trace/trace_rule.h"
#include "tools/trace/trace_store.h"

#include <cstdint>
#include <limits>
#include <optional>
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

    TextPattern part; // in the text or the source
    std::int32_t highestLevel = kAllLevels;
    TraceRules rules{}; // highlights among them say nothing here

    /// Malformed records have no level: part and rules alone decide about them. `process` is the
    /// name that the record is shown with.
    bool Accepts(const TraceEntry& entry, std::string_view process = {}) const noexcept;

    bool AcceptsAll() const noexcept;

    bool operator==(const TraceFilter&) const = default;
};

/// Whether one of the rules says that a record is not to be kept.
bool IsForgotten(const TraceRules& rules, const TraceEntry& entry,
                 std::string_view process) noexcept;

/// The colour of the first highlight that means a record, from 0; none without one.
std::optional<int> HighlightOf(const TraceRules& rules, const TraceEntry& entry,
                               std::string_view process) noexcept;
} // namespace velt
