#include "tools/trace/trace_pairs.h"

#include <catch.hpp>

#include <optional>
#include <string>

using velt::FindPartner;
using velt::TraceEntry;
using velt::TraceStore;

namespace
{
using Found = std::optional<std::uint64_t>;

struct Line
{
    const char* text;
    std::uint32_t process = 1;
    std::int32_t level = 4;
    std::uint32_t sender = 0;
};

TraceStore StoreOf(std::initializer_list<Line> lines)
{
    TraceStore store;
    for (const Line& line : lines)
    {
        TraceEntry entry;
        entry.text = line.text;
        entry.process = line.process;
        entry.sender = line.sender;
        entry.level = line.level;
        store.Append(entry);
    }
    return store;
}

/// Both ways.
bool ArePaired(const TraceStore& store, std::uint64_t entry, std::uint64_t exit)
{
    return FindPartner(store, entry) == Found(exit) && FindPartner(store, exit) == Found(entry);
}
} // namespace

TEST_CASE("FindPartner: entry and exit of nested calls", "[tools]")
{
    const TraceStore store = StoreOf({
        {"A - enter"},           // 0
        {"  B - enter"},         // 1
        {"    a message", 1, 3}, // 2
        {"  B - return = 0"},    // 3
        {"  B - enter"},         // 4
        {"    B - enter"},       // 5
        {"    B - return"},      // 6
        {"  B - a text"},        // 7
        {"A - return = -1"},     // 8
    });
    CHECK(ArePaired(store, 0, 8));
    CHECK(ArePaired(store, 1, 3));
    CHECK(ArePaired(store, 4, 7));
    CHECK(ArePaired(store, 5, 6));
    CHECK_FALSE(FindPartner(store, 2));
}

TEST_CASE("FindPartner: other processes, functions and levels do not count", "[tools]")
{
    const TraceStore store = StoreOf({
        {"A - enter"},
        {"A - return", 2},
        {"B - return"},
        {"A - return", 1, 3},
        {"A - return"},
    });
    CHECK(ArePaired(store, 0, 4));
}

TEST_CASE("FindPartner: senders that name no process are one, whatever is shown for them",
          "[tools]")
{
    const TraceStore store = StoreOf({
        {"A - enter", 0, 4, 1},   // "a"
        {"  B - enter", 0, 4, 2}, // "a or b": another program has begun meanwhile
        {"  B - return", 0, 4, 3},
        {"A - return", 7, 4, 2}, // of one that names itself
        {"A - return", 0, 4, 3},
    });
    CHECK(ArePaired(store, 0, 4));
    CHECK(ArePaired(store, 1, 2));
}

TEST_CASE("FindPartner: the same function on several threads pairs like brackets", "[tools]")
{
    const TraceStore store =
        StoreOf({{"A - enter"}, {"A - enter"}, {"A - return"}, {"A - return"}});
    CHECK(ArePaired(store, 0, 3));
    CHECK(ArePaired(store, 1, 2));
}

TEST_CASE("FindPartner: none where the other line is missing", "[tools]")
{
    CHECK_FALSE(FindPartner(StoreOf({{"A - enter"}}), 0));
    CHECK_FALSE(FindPartner(StoreOf({{"A - return"}}), 0));
    CHECK_FALSE(FindPartner(StoreOf({{"A - enter"}, {"A - enter"}}), 0));
}

TEST_CASE("FindPartner: a line whose entry was dropped has no partner", "[tools]")
{
    TraceStore store({16, std::size_t{512} << 20});
    TraceEntry entry;
    entry.level = 4;
    entry.text = "A - enter";
    store.Append(entry);
    for (int i = 0; i < 20; ++i)
    {
        entry.text = "  B - enter";
        store.Append(entry);
    }
    entry.text = "A - return";
    store.Append(entry);
    REQUIRE(store.First() > 0);
    CHECK_FALSE(FindPartner(store, store.Next() - 1));
}

TEST_CASE("FindPartner: it looks as far as it is told", "[tools]")
{
    const TraceStore store = StoreOf({{"A - enter"}, {"  x"}, {"  x"}, {"A - return"}});
    CHECK_FALSE(FindPartner(store, 0, 2));
    CHECK(FindPartner(store, 0, 3) == Found(3));
    CHECK_FALSE(FindPartner(store, 3, 2));
    CHECK(FindPartner(store, 3, 3) == Found(0));
}
