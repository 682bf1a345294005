#pragma once

#include "tools/trace/text_pattern.h"
#include "tools/trace/trace_store.h"
#include "tools/trace/trace_view.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace velt
{
enum class SearchDirection : std::uint8_t
{
    forward,
    backward,
};

/// The nearest row, beginning beside `from` and going on at the other end of the list, whose text
/// or source has a pattern; `from` itself comes last. Without a row to start from the first or the
/// last row is the nearest. None when no row has it, and for an empty pattern.
std::optional<std::size_t> FindRow(const TraceStore& store, const TraceView& view,
                                   const TextPattern& pattern, std::optional<std::size_t> from,
                                   SearchDirection direction) noexcept;
} // namespace velt
