#include "tools/trace/trace_pairs.h"

#include "tools/trace/trace_line.h"

#include <algorithm>

namespace velt
{
std::optional<std::uint64_t> FindPartner(const TraceStore& store, std::uint64_t sequence,
                                         std::uint64_t most)
{
    const TraceEntry start = store.At(sequence);
    const TraceLine line = ParseTraceLine(start.level, start.text);
    if (line.kind == TraceLineKind::other)
    {
        return std::nullopt;
    }
    const bool forward = line.kind == TraceLineKind::entry;
    std::uint64_t open = 0; // pairs that have begun, seen from here, and not ended
    const std::uint64_t there = forward ? store.Next() - sequence - 1 : sequence - store.First();
    for (std::uint64_t step = 1; step <= std::min(there, most); ++step)
    {
        const std::uint64_t at = forward ? sequence + step : sequence - step;
        const TraceEntry entry = store.At(at);
        if (entry.level != kTraceScopeLevel || entry.process != start.process)
        {
            continue;
        }
        const TraceLine other = ParseTraceLine(entry.level, entry.text);
        if (other.name != line.name || other.indentation != line.indentation)
        {
            continue;
        }
        if (other.kind == line.kind)
        {
            ++open;
        }
        else if (open == 0)
        {
            return at;
        }
        else
        {
            --open;
        }
    }
    return std::nullopt;
}
} // namespace velt
