#include "tools/trace/trace_view.h"

#include <algorithm>
#include <utility>

namespace velt
{
void TraceView::SetFilter(TraceFilter filter)
{
    m_filter = std::move(filter);
    m_acceptsAll = m_filter.AcceptsAll();
    m_rows.clear();
    m_gone = 0;
    m_begin = m_store.First();
    m_end = m_begin;
    m_base = m_begin;
}

bool TraceView::Advance(std::size_t most)
{
    LeaveOutDropped();
    const std::uint64_t end = m_end + std::min<std::uint64_t>(most, m_store.Next() - m_end);
    if (m_acceptsAll)
    {
        m_end = end;
    }
    for (; m_end < end; ++m_end)
    {
        const TraceEntry entry = m_store.At(m_end);
        if (m_filter.Accepts(entry, m_names ? m_names->Name(entry.sender) : std::string_view()))
        {
            m_rows.push_back(static_cast<std::uint32_t>(m_end - m_base));
        }
    }
    return m_end == m_store.Next();
}

std::size_t TraceView::Trim() noexcept
{
    LeaveOutDropped();
    return std::exchange(m_gone, 0);
}

void TraceView::LeaveOutDropped() noexcept
{
    const std::size_t before = Size();
    const std::uint64_t first = m_store.First();
    m_begin = std::max(m_begin, first);
    m_end = std::max(m_end, first);
    if (m_rows.empty())
    {
        m_base = m_begin;
    }
    else if (const std::uint64_t gone = m_begin - m_base; gone != 0)
    {
        m_rows.erase(m_rows.begin(), FirstRowFrom(m_begin));
        // Counted from the oldest record, so that the numbers stay as small as the store.
        for (std::uint32_t& row : m_rows)
        {
            row -= static_cast<std::uint32_t>(gone);
        }
        m_base = m_begin;
    }
    m_gone += before - Size();
}

std::vector<std::uint32_t>::const_iterator TraceView::FirstRowFrom(
    std::uint64_t sequence) const noexcept
{
    return std::lower_bound(
        m_rows.begin(), m_rows.end(), sequence,
        [this](std::uint32_t row, std::uint64_t wanted) { return m_base + row < wanted; });
}

std::optional<std::size_t> TraceView::RowOf(std::uint64_t sequence) const noexcept
{
    if (m_acceptsAll)
    {
        return sequence >= m_begin && sequence < m_end
                   ? std::optional(static_cast<std::size_t>(sequence - m_begin))
                   : std::nullopt;
    }
    const auto found = FirstRowFrom(sequence);
    return found != m_rows.end() && m_base + *found == sequence
               ? std::optional(static_cast<std::size_t>(found - m_rows.begin()))
               : std::nullopt;
}
} // namespace velt
