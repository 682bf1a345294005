#include "tools/trace/row_search.h"

namespace velt
{
std::optional<std::size_t> FindRow(const TraceStore& store, const TraceView& view,
                                   const TextPattern& pattern, std::optional<std::size_t> from,
                                   SearchDirection direction) noexcept
{
    const std::size_t rows = view.Size();
    if (pattern.IsEmpty() || rows == 0)
    {
        return std::nullopt;
    }
    const bool forward = direction == SearchDirection::forward;
    std::size_t row = from && *from < rows ? *from : forward ? rows - 1 : 0;
    for (std::size_t looked = 0; looked < rows; ++looked)
    {
        row = forward ? (row + 1 < rows ? row + 1 : 0) : (row > 0 ? row - 1 : rows - 1);
        const std::uint64_t sequence = view.SequenceAt(row);
        if (sequence < store.First())
        {
            continue; // dropped since the view has looked
        }
        const TraceEntry entry = store.At(sequence);
        if (pattern.IsIn(entry.text) || pattern.IsIn(entry.source))
        {
            return row;
        }
    }
    return std::nullopt;
}
} // namespace velt
