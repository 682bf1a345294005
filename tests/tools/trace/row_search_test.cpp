#include "tools/trace/row_search.h"
#include "tools/trace/trace_marks.h"

#include <catch.hpp>

using namespace velt;

namespace
{
/// The row that a search finds, a few rows at a time.
std::optional<std::size_t> FindRow(const TraceStore& store, const TraceView& view,
                                   const TextPattern& pattern, std::optional<std::size_t> from,
                                   SearchDirection direction)
{
    RowSearch search(store, view, pattern, from, direction);
    while (!search.Look(2))
    {
    }
    const std::optional<std::uint64_t> found = search.Found();
    return found ? view.RowOf(*found) : std::nullopt;
}
} // namespace

TEST_CASE("RowSearch: the nearest row on either side, and around the end", "[tools]")
{
    TraceStore store;
    for (const char* text : {"hit 0", "miss", "hidden hit", "hit 3", "miss", "Hit 5"})
    {
        TraceEntry entry;
        entry.text = text;
        store.Append(entry);
    }
    TraceView view(store);
    TraceFilter filter;
    filter.rules.push_back({});
    filter.rules.back().kind = TraceRuleKind::exclude;
    filter.rules.back().text = "hidden";
    view.SetFilter(filter);
    view.Advance(100);
    REQUIRE(view.Size() == 5);
    const auto next = [&](std::optional<std::size_t> from) {
        return FindRow(store, view, "hit", from, SearchDirection::forward);
    };
    const auto previous = [&](std::optional<std::size_t> from) {
        return FindRow(store, view, "hit", from, SearchDirection::backward);
    };
    CHECK(next(std::nullopt) == 0u);
    CHECK(next(0) == 2u);
    CHECK(next(2) == 4u);
    CHECK(next(4) == 0u);
    CHECK(previous(std::nullopt) == 4u);
    CHECK(previous(4) == 2u);
    CHECK(previous(0) == 4u);
    CHECK(FindRow(store, view, "hit 5", 4, SearchDirection::forward) == 4u); // the only one
    CHECK_FALSE(FindRow(store, view, "hidden", 0, SearchDirection::forward));
    CHECK_FALSE(FindRow(store, view, "", 0, SearchDirection::forward));
    CHECK_FALSE(FindRow(store, TraceView(store), "hit", 0, SearchDirection::backward));
}

TEST_CASE("RowSearch: rows that the store has dropped meanwhile are not looked at", "[tools]")
{
    TraceStore store({16, std::size_t{1} << 20});
    const auto add = [&](int count, const char* text) {
        for (int i = 0; i < count; ++i)
        {
            TraceEntry entry;
            entry.text = text;
            store.Append(entry);
        }
    };
    add(4, "hit");
    add(12, "miss");
    TraceView view(store);
    view.Advance(16);
    RowSearch search(store, view, TextPattern("hit"), std::nullopt, SearchDirection::forward);
    add(8, "hit"); // which the view knows nothing of
    REQUIRE(store.First() >= 4);
    while (!search.Look(2))
    {
    }
    CHECK_FALSE(search.Found());
}

TEST_CASE("RowSearch: another filter meanwhile does not change what is found", "[tools]")
{
    TraceStore store;
    for (const char* text : {"a", "b", "c hit", "d hit"})
    {
        TraceEntry entry;
        entry.text = text;
        store.Append(entry);
    }
    TraceView view(store);
    view.Advance(100);
    RowSearch search(store, view, "hit", 0, SearchDirection::forward);
    CHECK_FALSE(search.Look(1));
    view.SetFilter({"d"});
    view.Advance(100);
    CHECK(search.Look(1));
    CHECK(search.Found() == 2u);
    CHECK(search.Look(1)); // it stays at its end
    CHECK(search.Found() == 2u);
}

TEST_CASE("TraceMarks: they are found on either side until their records go", "[tools]")
{
    TraceMarks marks;
    CHECK(marks.IsEmpty());
    CHECK_FALSE(marks.After(0));
    CHECK_FALSE(marks.Before(100));
    marks.Toggle(3);
    marks.Toggle(7);
    marks.Toggle(9);
    marks.Toggle(9);
    CHECK(marks.Has(7));
    CHECK_FALSE(marks.Has(9));
    CHECK(marks.After(0) == 3u);
    CHECK(marks.After(std::nullopt) == 3u);
    CHECK(marks.Before(std::nullopt) == 7u);
    CHECK(marks.After(3) == 7u);
    CHECK_FALSE(marks.After(7));
    CHECK(marks.Before(7) == 3u);
    CHECK_FALSE(marks.Before(3));
    marks.LeaveOutBefore(7);
    CHECK_FALSE(marks.Before(7));
    CHECK(marks.Has(7));
    marks.Clear();
    CHECK(marks.IsEmpty());
}
