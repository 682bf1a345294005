#include "tools/trace/arrival_clock.h"

#include <catch.hpp>

#include <windows.h>

#include <cstdint>

using namespace velt;

namespace
{
std::int64_t CounterUs()
{
    LARGE_INTEGER counter;
    LARGE_INTEGER frequency;
    ::QueryPerformanceCounter(&counter);
    ::QueryPerformanceFrequency(&frequency);
    return static_cast<std::int64_t>(static_cast<double>(counter.QuadPart) * 1e6 /
                                     static_cast<double>(frequency.QuadPart));
}

std::int64_t LocalUs()
{
    FILETIME utc;
    FILETIME local;
    ::GetSystemTimeAsFileTime(&utc);
    ::FileTimeToLocalFileTime(&utc, &local);
    if (::CompareFileTime(&utc, &local) == 0)
    {
        WARN("local time is universal time here: the one would pass for the other");
    }
    return static_cast<std::int64_t>(
        (std::uint64_t{local.dwHighDateTime} << 32 | local.dwLowDateTime) / 10);
}
} // namespace

TEST_CASE("ArrivalClock: local time with the steps of the performance counter", "[tools]")
{
    const std::int64_t localBefore = LocalUs();
    const std::int64_t before = CounterUs();
    const ArrivalClock clock;
    const std::int64_t started = CounterUs();
    const std::int64_t localAfter = LocalUs();
    std::int64_t counter = started;
    std::int64_t last = 0;
    int falls = 0;
    while (counter - started < 1'200'000) // across a second at least
    {
        const std::int64_t now = clock.Now();
        falls += now < last ? 1 : 0;
        last = now;
        counter = CounterUs();
        ::Sleep(1);
    }
    CHECK(falls == 0);
    // What passed between two calls is known no closer; each figure is rounded.
    const std::int64_t end = clock.Now();
    const std::int64_t ended = CounterUs();
    CHECK(end >= localBefore + (counter - started) - 3);
    CHECK(end <= localAfter + (ended - before) + 3);
}
