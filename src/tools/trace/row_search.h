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

/// Looks for the nearest row, beginning beside `from` and going on at the other end of the list,
/// whose text or source has a pattern; `from` itself comes last. Without a row to start from the
/// first or the last row is the nearest. None when no row has it, and for an empty pattern. It goes
/// on in slices, over the rows that there were at its beginning.
class RowSearch
{
public:
    /// The store must outlive the search, and drop nothing meanwhile. Throws std::bad_alloc.
    RowSearch(const TraceStore& store, TraceView view, TextPattern pattern,
              std::optional<std::size_t> from, SearchDirection direction);

    /// Looks at up to `most` further rows; returns whether it has come to an end.
    bool Look(std::size_t most) noexcept;

    /// The record of the row, when it has come to an end.
    std::optional<std::uint64_t> Found() const noexcept
    {
        return m_found;
    }

private:
    const TraceStore& m_store;
    TraceView m_view; // its own: another filter changes nothing
    TextPattern m_pattern;
    bool m_forward;
    std::size_t m_row = 0;  // that was looked at last
    std::size_t m_left = 0; // to be looked at
    std::optional<std::uint64_t> m_found;
};
} // namespace velt
