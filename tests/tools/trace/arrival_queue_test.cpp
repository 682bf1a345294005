#include "tools/trace/arrival_queue.h"

#include <catch.hpp>

#include <string>
#include <vector>

using velt::Arrival;
using velt::ArrivalQueue;

namespace
{
std::vector<std::byte> Bytes(std::size_t size, unsigned value)
{
    return std::vector<std::byte>(size, static_cast<std::byte>(value));
}

Arrival Of(std::size_t size, std::int64_t time = 0)
{
    return {time, 12, static_cast<std::uint32_t>(size), 0x55543132};
}

std::vector<std::int64_t> TimesIn(const ArrivalQueue& queue)
{
    std::vector<std::int64_t> times;
    queue.ForEach([&](const Arrival& arrival, std::span<const std::byte>) {
        times.push_back(arrival.arrivalUs);
    });
    return times;
}
} // namespace

TEST_CASE("ArrivalQueue: messages come out as they went in", "[tools]")
{
    ArrivalQueue queue;
    CHECK(queue.IsEmpty());
    const std::vector<std::size_t> sizes = {82, 0, 1, 1105, ArrivalQueue::kMostKept};
    for (std::size_t i = 0; i < sizes.size(); ++i)
    {
        queue.Append(Of(sizes[i], static_cast<std::int64_t>(i)),
                     Bytes(sizes[i], static_cast<unsigned>(i)));
    }
    CHECK_FALSE(queue.IsEmpty());
    std::size_t i = 0;
    queue.ForEach([&](const Arrival& arrival, std::span<const std::byte> data) {
        CHECK(arrival.arrivalUs == static_cast<std::int64_t>(i));
        CHECK(arrival.processId == 12);
        CHECK(arrival.dataKind == 0x55543132);
        CHECK(arrival.sizeBytes == sizes[i]);
        CHECK(std::vector<std::byte>(data.begin(), data.end()) ==
              Bytes(sizes[i], static_cast<unsigned>(i)));
        ++i;
    });
    CHECK(i == sizes.size());
}

TEST_CASE("ArrivalQueue: of a long message the front is kept, and its size", "[tools]")
{
    ArrivalQueue queue;
    queue.Append(Of(1'000'000), Bytes(1'000'000, 7));
    queue.Append(Of(1, 5), Bytes(1, 8));
    std::vector<std::size_t> kept;
    queue.ForEach([&](const Arrival& arrival, std::span<const std::byte> data) {
        kept.push_back(arrival.sizeBytes);
        kept.push_back(data.size());
    });
    CHECK(kept == std::vector<std::size_t>{1'000'000, ArrivalQueue::kMostKept, 1, 1});
}

TEST_CASE("ArrivalQueue: taking leaves it empty and ready", "[tools]")
{
    ArrivalQueue queue;
    queue.Append(Of(1, 1), Bytes(1, 1));
    const ArrivalQueue taken = queue.Take();
    CHECK(TimesIn(taken) == std::vector<std::int64_t>{1});
    CHECK(queue.IsEmpty());
    queue.Append(Of(1, 2), Bytes(1, 1));
    CHECK(TimesIn(queue) == std::vector<std::int64_t>{2});
}

TEST_CASE("ArrivalQueue: when nobody takes, the oldest are lost and counted", "[tools]")
{
    constexpr std::size_t kBound = std::size_t{1} << 20;
    ArrivalQueue queue(kBound);
    constexpr std::int64_t kMessages = 20'000;
    for (std::int64_t i = 0; i < kMessages; ++i)
    {
        queue.Append(Of(1000, i), Bytes(1000, 1));
    }
    const std::vector<std::int64_t> times = TimesIn(queue);
    CHECK(times.size() * 1000 <= kBound);
    CHECK(times.size() * 1000 >= kBound / 2);
    CHECK(times.back() == kMessages - 1);
    CHECK(times.front() == kMessages - static_cast<std::int64_t>(times.size()));
    CHECK(queue.Lost() + times.size() == kMessages);

    ArrivalQueue taken = queue.Take();
    CHECK(queue.Lost() == 0);
    CHECK(taken.Lost() + times.size() == kMessages);
}

TEST_CASE("ArrivalQueue: what comes last is kept, however small the bound", "[tools]")
{
    constexpr std::size_t kBlock = std::size_t{256} << 10; // memory is taken and lost by so much
    ArrivalQueue queue(1);
    constexpr std::int64_t kMessages = 600; // two blocks and some
    for (std::int64_t i = 0; i < kMessages; ++i)
    {
        queue.Append(Of(1000, i), Bytes(1000, 1));
    }
    const std::vector<std::int64_t> times = TimesIn(queue);
    REQUIRE_FALSE(times.empty());
    CHECK(times.back() == kMessages - 1);
    CHECK(times.size() * 1000 <= kBlock);
    CHECK(queue.Lost() + times.size() == kMessages);
}
