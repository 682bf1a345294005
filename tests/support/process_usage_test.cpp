#include "tests/support/process_usage.h"

#include <windows.h>

#include <catch.hpp>

using namespace velt::test;

namespace
{
constexpr std::size_t kBytes = std::size_t{4} << 20;
constexpr std::size_t kRoom = std::size_t{1} << 20; // for what the system makes meanwhile

std::size_t OutsideOf(const ProcessUsage& usage)
{
    return usage.privateBytes - usage.heapPages;
}
} // namespace

TEST_CASE("CurrentUsage: blocks of heaps are told apart from other memory", "[structure]")
{
    CurrentUsage(); // what is made once is there now
    const ProcessUsage before = CurrentUsage();
    CHECK(before.heapBytes > 0);
    CHECK(before.heapBytes <= before.heapPages);
    CHECK(before.heapPages < before.privateBytes);
    SECTION("one large block")
    {
        void* const block = ::HeapAlloc(::GetProcessHeap(), 0, kBytes);
        REQUIRE(block);
        const ProcessUsage with = CurrentUsage();
        CHECK(with.heapBytes >= before.heapBytes + kBytes);
        CHECK(with.heapPages >= before.heapPages + kBytes);
        CHECK(OutsideOf(with) < OutsideOf(before) + kRoom);
        ::HeapFree(::GetProcessHeap(), 0, block);
    }
    SECTION("many small ones, in a heap of their own")
    {
        const HANDLE heap = ::HeapCreate(0, 0, 0);
        for (std::size_t bytes = 0; bytes < kBytes; bytes += 1000)
        {
            REQUIRE(::HeapAlloc(heap, 0, 1000));
        }
        const ProcessUsage with = CurrentUsage();
        CHECK(with.heapBytes >= before.heapBytes + kBytes);
        CHECK(with.heapPages >= before.heapPages + kBytes);
        CHECK(OutsideOf(with) < OutsideOf(before) + kRoom);
        ::HeapDestroy(heap);
    }
    SECTION("pages of no heap")
    {
        void* const pages =
            ::VirtualAlloc(nullptr, kBytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
        REQUIRE(pages);
        const ProcessUsage with = CurrentUsage();
        CHECK(with.heapPages < before.heapPages + kRoom);
        CHECK(OutsideOf(with) >= OutsideOf(before) + kBytes);
        ::VirtualFree(pages, 0, MEM_RELEASE);
    }
    const ProcessUsage after = CurrentUsage();
    CHECK(after.heapBytes < before.heapBytes + kRoom);
    CHECK(after.privateBytes < before.privateBytes + 2 * kRoom);
}

TEST_CASE("UsageOf: of another process its memory and handles, but no heaps", "[structure]")
{
    const ProcessUsage own = CurrentUsage();
    const ProcessUsage usage = UsageOf(::GetCurrentProcess());
    CHECK(usage.heapBytes == 0);
    CHECK(usage.heapPages == 0);
    CHECK(usage.privateBytes + kRoom > own.privateBytes);
    CHECK(usage.handles > 0);
}
