#include "tools/trace/trace_store.h"

#include <catch.hpp>

#include <string>

using velt::TraceEntry;
using velt::TraceRecordFault;
using velt::TraceStore;

namespace
{
TraceEntry Entry(std::string_view text)
{
    TraceEntry entry;
    entry.text = text;
    return entry;
}
} // namespace

TEST_CASE("TraceStore: entries come back as they were added", "[tools]")
{
    TraceStore store;
    const TraceEntry first{-1, 7, 12, -2, TraceRecordFault::none, "source", "  text"};
    const TraceEntry second{
        INT64_MAX, UINT32_MAX, UINT32_MAX - 1, INT32_MIN, TraceRecordFault::wrongTotal, "", ""};
    store.Append(first);
    store.Append(second);
    REQUIRE(store.Size() == 2);
    CHECK(store.First() == 0);
    CHECK(store.Next() == 2);
    for (const auto& [at, expected] : {std::pair(0u, first), std::pair(1u, second)})
    {
        const TraceEntry entry = store.At(at);
        CHECK(entry.arrivalUs == expected.arrivalUs);
        CHECK(entry.sender == expected.sender);
        CHECK(entry.process == expected.process);
        CHECK(entry.level == expected.level);
        CHECK(entry.fault == expected.fault);
        CHECK(entry.source == expected.source);
        CHECK(entry.text == expected.text);
    }
}

TEST_CASE("TraceStore: the store has copies, of any length", "[tools]")
{
    TraceStore store;
    for (std::size_t length : {0u, 1u, 1023u, 65535u, 65536u, 100'000u})
    {
        std::string text(length, 't');
        store.Append(Entry(text));
        text.assign(length, '!');
        const std::string_view kept = store.At(store.Next() - 1).text;
        CHECK(kept == std::string(std::min<std::size_t>(length, 65535), 't'));
    }
    TraceEntry entry;
    const std::string source(300, 's');
    entry.source = source;
    store.Append(entry);
    CHECK(store.At(store.Next() - 1).source == std::string(255, 's'));
}

TEST_CASE("TraceStore: the oldest go a sixteenth at once, and are counted", "[tools]")
{
    TraceStore store({1600, std::size_t{512} << 20});
    for (int i = 0; i < 1701; ++i)
    {
        store.Append(Entry(std::to_string(i)));
    }
    CHECK(store.Size() == 1701);
    CHECK(store.Dropped() == 0);
    store.Append(Entry("1701"));
    CHECK(store.Dropped() == 101);
    CHECK(store.First() == 101);
    CHECK(store.Next() == 1702);
    CHECK(store.Size() == 1601); // never fewer than the limit once it was reached
    CHECK(store.At(101).text == "101");
    CHECK(store.At(1701).text == "1701");
}

TEST_CASE("TraceStore: the newest records stay whole over many rounds", "[tools]")
{
    TraceStore store({100, std::size_t{512} << 20});
    for (int i = 0; i < 50'000; ++i)
    {
        store.Append(
            Entry(std::to_string(i) + std::string(static_cast<std::size_t>(i % 700), '.')));
    }
    CHECK(store.Size() >= 100);
    CHECK(store.Size() <= 107);
    CHECK(store.Dropped() + store.Size() == 50'000);
    for (std::uint64_t at = store.First(); at < store.Next(); ++at)
    {
        CHECK(store.At(at).text ==
              std::to_string(at) + std::string(static_cast<std::size_t>(at % 700), '.'));
    }
}

TEST_CASE("TraceStore: texts stay within the bound of bytes", "[tools]")
{
    constexpr std::size_t kBytes = 4 * TraceStore::kBlockBytes;
    TraceStore store({1'000'000, kBytes});
    const std::string text(1000, 't');
    for (int i = 0; i < 20'000; ++i)
    {
        store.Append(Entry(text));
    }
    CHECK(store.Size() * text.size() <= kBytes);
    CHECK(store.Size() * text.size() >= kBytes / 2); // and is used
    CHECK(store.Dropped() + store.Size() == 20'000);
    CHECK(store.At(store.First()).text == text);
}

TEST_CASE("TraceStore: clearing forgets the records and goes on counting", "[tools]")
{
    TraceStore store({10, TraceStore::kBlockBytes});
    for (int i = 0; i < 30; ++i)
    {
        store.Append(Entry("text"));
    }
    REQUIRE(store.Dropped() > 0);
    store.Clear();
    CHECK(store.Size() == 0);
    CHECK(store.Dropped() == 0);
    CHECK(store.First() == 30);
    CHECK(store.Next() == 30);
    store.Append(Entry("after"));
    CHECK(store.At(30).text == "after");
    store.Clear();
    store.Clear();
    CHECK(store.First() == 31);
}

TEST_CASE("TraceStore: by default it keeps the newest million", "[tools]")
{
    TraceStore store;
    constexpr std::uint64_t kRecords = 1'100'000;
    for (std::uint64_t i = 0; i < kRecords; ++i)
    {
        store.Append(Entry("    CEnumVariantCol::get_Item - return = " + std::to_string(i)));
    }
    CHECK(store.Size() >= 1'000'000);
    CHECK(store.Size() <= 1'062'501);
    CHECK(store.Dropped() + store.Size() == kRecords);
    CHECK(store.At(kRecords - 1).text == "    CEnumVariantCol::get_Item - return = 1099999");
}

TEST_CASE("TraceStore: by default a million of the longest records fit", "[tools]")
{
    TraceStore store;
    const std::string source(63, 's');
    std::string text(1023, 't');
    TraceEntry entry;
    entry.source = source;
    entry.text = text;
    constexpr std::uint64_t kFull = 1'062'501; // with the sixteenth that goes at once
    for (std::uint64_t i = 0; i < kFull; ++i)
    {
        store.Append(entry);
    }
    CHECK(store.Dropped() == 0);
    CHECK(store.Size() == kFull);
    text.assign(1023, 'n');
    store.Append(entry);
    CHECK(store.Dropped() == 62'501);
    CHECK(store.At(store.First()).text == std::string(1023, 't'));
    CHECK(store.At(store.Next() - 1).text == text);
}
