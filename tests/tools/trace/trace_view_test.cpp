#include "tools/trace/trace_view.h"

#include <catch.hpp>

#include <string>
#include <vector>

using velt::TraceEntry;
using velt::TraceFilter;
using velt::TraceStore;
using velt::TraceView;

namespace
{
void Add(TraceStore& store, std::string_view text, std::int32_t level = 4)
{
    TraceEntry entry;
    entry.level = level;
    entry.text = text;
    store.Append(entry);
}

std::vector<std::string> Rows(const TraceStore& store, const TraceView& view)
{
    std::vector<std::string> rows;
    for (std::size_t row = 0; row < view.Size(); ++row)
    {
        rows.emplace_back(store.At(view.SequenceAt(row)).text);
    }
    return rows;
}
using Texts = std::vector<std::string>;
} // namespace

TEST_CASE("TraceView: without a filter it has every record that was taken in", "[tools]")
{
    TraceStore store;
    Add(store, "a");
    TraceView view(store);
    CHECK(view.Size() == 0);
    CHECK(view.Waiting() == 1);
    CHECK(view.Advance(10));
    Add(store, "b");
    CHECK(Rows(store, view) == Texts{"a"});
    CHECK(view.Waiting() == 1);
    CHECK(view.Advance(10));
    CHECK(Rows(store, view) == Texts{"a", "b"});
}

TEST_CASE("TraceView: a filter is carried out in slices", "[tools]")
{
    TraceStore store;
    for (int i = 0; i < 100; ++i)
    {
        Add(store, i % 10 == 0 ? "wanted" : "other");
    }
    TraceView view(store);
    view.SetFilter({"WANTED"});
    CHECK_FALSE(view.Advance(35));
    CHECK(view.Size() == 4);
    CHECK(view.Waiting() == 65);
    CHECK_FALSE(view.Advance(64));
    CHECK(view.Advance(1));
    CHECK(view.Size() == 10);
    CHECK(view.SequenceAt(9) == 90);
    CHECK(view.Advance(1));
    CHECK(view.Size() == 10);
}

TEST_CASE("TraceView: another filter starts over", "[tools]")
{
    TraceStore store;
    Add(store, "error", 1);
    Add(store, "detail", 3);
    Add(store, "call", 4);
    TraceView view(store);
    view.Advance(10);
    view.SetFilter({"", 3});
    CHECK(view.Size() == 0);
    view.Advance(10);
    CHECK(Rows(store, view) == Texts{"error", "detail"});
    view.SetFilter({});
    view.Advance(10);
    CHECK(Rows(store, view) == Texts{"error", "detail", "call"});
}

TEST_CASE("TraceView: rows of dropped records go from the front", "[tools]")
{
    const std::string part = GENERATE("", "1");
    TraceStore store({16, std::size_t{512} << 20});
    TraceView view(store);
    view.SetFilter({part});
    for (int i = 0; i < 18; ++i)
    {
        Add(store, std::to_string(i));
    }
    view.Advance(100);
    const std::size_t before = view.Size();
    Add(store, "18"); // 0 and 1 go
    CHECK(view.Trim() == (part.empty() ? 2u : 1u));
    CHECK(view.Trim() == 0);
    CHECK(view.Size() == before - (part.empty() ? 2 : 1));
    view.Advance(100);
    CHECK(Rows(store, view).front() == (part.empty() ? "2" : "10"));
    CHECK(Rows(store, view).back() == "18");
}

TEST_CASE("TraceView: records that were dropped before it looked are no rows", "[tools]")
{
    TraceStore store({16, std::size_t{512} << 20});
    TraceView view(store);
    for (int i = 0; i < 100; ++i)
    {
        Add(store, std::to_string(i));
    }
    CHECK(view.Trim() == 0);
    CHECK(view.Advance(100));
    CHECK(view.Size() == store.Size());
    CHECK(Rows(store, view).back() == "99");
    const std::size_t rows = view.Size();
    store.Clear();
    CHECK(view.Trim() == rows);
    CHECK(view.Size() == 0);
}

TEST_CASE("TraceView: a record finds its row again", "[tools]")
{
    TraceStore store;
    for (const char* text : {"ax", "b", "cx", "dx"})
    {
        Add(store, text);
    }
    TraceView view(store);
    view.Advance(3);
    CHECK(view.RowOf(0) == 0u);
    CHECK(view.RowOf(2) == 2u);
    CHECK_FALSE(view.RowOf(3)); // not taken in yet
    view.SetFilter({"x"});
    view.Advance(10);
    CHECK(view.RowOf(0) == 0u);
    CHECK(view.RowOf(2) == 1u);
    CHECK(view.RowOf(3) == 2u);
    CHECK_FALSE(view.RowOf(1));
    CHECK_FALSE(view.RowOf(4));
}

TEST_CASE("TraceView: rows that Advance has left out are told by Trim", "[tools]")
{
    TraceStore store({160, std::size_t{512} << 20});
    TraceView view(store);
    for (int i = 0; i < 171; ++i)
    {
        store.Append({});
    }
    view.Advance(1000);
    REQUIRE(view.Size() == 171);
    store.Append({}); // eleven go
    view.Advance(1000);
    CHECK(view.Size() == 161);
    CHECK(view.Trim() == 11);
    CHECK(view.Trim() == 0);
    for (int i = 0; i < 20; ++i)
    {
        store.Append({});
    }
    view.Advance(1000);
    view.SetFilter({}); // begins without rows, so none have gone
    CHECK(view.Trim() == 0);
}
