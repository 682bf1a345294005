#pragma once

#include "tools/trace/sender_names.h"
#include "tools/trace/trace_filter.h"
#include "tools/trace/trace_store.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace velt
{
/// The rows of a list: the records of a store that pass a filter, oldest first. A new filter is
/// carried out in slices, so that a window stays alive over a million records. Store and names must
/// outlive the view.
class TraceView
{
public:
    /// Without names, a rule finds no process.
    explicit TraceView(const TraceStore& store, const SenderNames* names = nullptr) noexcept
        : m_store(store),
          m_names(names),
          m_begin(store.First()),
          m_end(m_begin)
    {
    }

    /// Starts over with another filter: no row until Advance.
    void SetFilter(TraceFilter filter);

    const TraceFilter& Filter() const noexcept
    {
        return m_filter;
    }

    /// Takes in up to `most` further records; returns whether that were all. Throws std::bad_alloc.
    bool Advance(std::size_t most);

    /// Leaves out what the store has dropped; returns how many rows have gone from the front since
    /// the last call or the last new filter, those that Advance has left out included.
    std::size_t Trim() noexcept;

    std::size_t Size() const noexcept
    {
        return m_acceptsAll ? static_cast<std::size_t>(m_end - m_begin) : m_rows.size();
    }

    /// Sequence number of the record in a row below Size(). Trim first when the store has changed.
    std::uint64_t SequenceAt(std::size_t row) const noexcept
    {
        return m_acceptsAll ? m_begin + row : m_base + m_rows[row];
    }

    /// The row of a record; none when the filter, or the store, does not have it.
    std::optional<std::size_t> RowOf(std::uint64_t sequence) const noexcept;

    /// How many records of the store have not been looked at.
    std::size_t Waiting() const noexcept
    {
        return static_cast<std::size_t>(m_store.Next() - m_end);
    }

private:
    void LeaveOutDropped() noexcept;
    std::vector<std::uint32_t>::const_iterator FirstRowFrom(std::uint64_t sequence) const noexcept;

    const TraceStore& m_store;
    const SenderNames* m_names;
    TraceFilter m_filter;
    bool m_acceptsAll = true;
    std::uint64_t m_begin;             // records from here...
    std::uint64_t m_end;               // ...up to here have been looked at
    std::uint64_t m_base = 0;          // what the rows are counted from
    std::vector<std::uint32_t> m_rows; // sequence numbers beyond it; unused when all records pass
    std::size_t m_gone = 0;            // rows that have gone since Trim told
};
} // namespace velt
