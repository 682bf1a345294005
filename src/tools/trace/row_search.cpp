#include "tools/trace/row_search.h"

#include <utility>

namespace velt
{
RowSearch::RowSearch(const TraceStore& store, TraceView view, TextPattern pattern,
                     std::optional<std::size_t> from, SearchDirection direction)
    : m_store(store),
      m_view(std::move(view)),
      m_pattern(std::move(pattern)),
      m_forward(direction == SearchDirection::forward)
{
    const std::size_t rows = m_view.Size();
    if (!m_pattern.IsEmpty() && rows != 0)
    {
        m_left = rows;
        m_row = from && *from < rows ? *from : m_forward ? rows - 1 : 0;
    }
}

bool RowSearch::Look(std::size_t most) noexcept
{
    const std::size_t rows = m_view.Size();
    for (; most > 0 && m_left > 0; --most)
    {
        --m_left;
        m_row = m_forward ? (m_row + 1 < rows ? m_row + 1 : 0) : (m_row > 0 ? m_row : rows) - 1;
        const std::uint64_t sequence = m_view.SequenceAt(m_row);
        if (sequence < m_store.First())
        {
            continue; // dropped since the view has looked
        }
        const TraceEntry entry = m_store.At(sequence);
        if (m_pattern.IsIn(entry.text) || m_pattern.IsIn(entry.source))
        {
            m_found = sequence;
            m_left = 0;
        }
    }
    return m_left == 0;
}
} // namespace velt
