#include "tools/trace/selection_text.h"

#include "tools/trace/trace_export.h"
#include "tools/trace/trace_pairs.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace velt
{
namespace
{
constexpr std::uint64_t kPairSearch = 100'000; // records that a selection looks through

/// The record with the focus, unless the store has dropped it.
std::optional<std::uint64_t> FocusedIn(const TraceStore& store, const RecordList& list) noexcept
{
    const std::optional<std::uint64_t> focused = list.Focused();
    return focused && *focused >= store.First() ? focused : std::nullopt;
}

std::string PairText(const TraceStore& store, std::uint64_t sequence)
{
    const std::optional<std::uint64_t> partner = FindPartner(store, sequence, kPairSearch);
    if (!partner)
    {
        return {};
    }
    const std::int64_t from = store.At(sequence).arrivalUs;
    const std::int64_t to = store.At(*partner).arrivalUs;
    return to >= from && *partner > sequence
               ? FormatDuration(to - from) + " until its exit line"
               : FormatDuration(std::max<std::int64_t>(from - to, 0)) + " since its entry line";
}

std::string SpanText(const TraceStore& store, const RecordList& list, std::size_t count)
{
    std::string text = FormatCount(count) + " selected";
    if (count == 2)
    {
        const std::vector<std::uint64_t> both = list.Selected();
        if (both.size() == 2 && both.front() >= store.First())
        {
            text +=
                ", " +
                FormatDuration(store.At(both.back()).arrivalUs - store.At(both.front()).arrivalUs) +
                " between them";
        }
    }
    return text;
}
} // namespace

std::string SelectionText(const TraceSession& session, const RecordList& list)
{
    const std::size_t count = list.SelectedCount();
    const std::optional<std::uint64_t> focused = FocusedIn(session.Store(), list);
    return count > 1               ? SpanText(session.Store(), list, count)
           : count == 1 && focused ? PairText(session.Store(), *focused)
                                   : "";
}

std::string DetailsText(const TraceSession& session, const RecordList& list,
                        const std::string& selection)
{
    const std::optional<std::uint64_t> focused = FocusedIn(session.Store(), list);
    if (!focused || list.SelectedCount() == 0)
    {
        return {};
    }
    const TraceEntry entry = session.Store().At(*focused);
    std::string text = FormatArrival(entry.arrivalUs) + "   level " + FormatLevel(entry) + "   " +
                       std::string(session.Process(entry));
    if (!entry.source.empty())
    {
        text += "   " + WithoutControls(entry.source);
    }
    return text + "\r\n" + WithoutControls(entry.text) + "\r\n" + selection;
}

std::string SelectedLines(const TraceSession& session, const RecordList& list)
{
    std::string lines;
    for (const std::uint64_t sequence : list.Selected())
    {
        if (sequence >= session.Store().First())
        {
            const TraceEntry entry = session.Store().At(sequence);
            AppendTextLine(lines, entry, session.Process(entry));
        }
    }
    return lines;
}
} // namespace velt
