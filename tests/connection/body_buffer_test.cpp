#include "connection/body_buffer.h"

#include <catch.hpp>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>

using velt::BodyBuffer;

namespace
{
constexpr std::size_t kMiB = std::size_t{1} << 20;

/// Bytes whose values tell their places.
std::string Bytes(std::size_t count)
{
    std::string bytes(count, '\0');
    for (std::size_t i = 0; i < count; ++i)
    {
        bytes[i] = static_cast<char>(i * 31 + i / 251);
    }
    return bytes;
}

/// Puts bytes into a buffer, `stepBytes` at a time, with room for `roomBytes` reserved each time.
void Fill(BodyBuffer& buffer, const std::string& bytes, std::size_t stepBytes,
          std::size_t roomBytes)
{
    for (std::size_t at = 0; at < bytes.size(); at += stepBytes)
    {
        const std::size_t count = std::min(stepBytes, bytes.size() - at);
        std::memcpy(buffer.Reserve(roomBytes), bytes.data() + at, count);
        buffer.Commit(count);
    }
}

/// All bytes of a buffer, without the NUL behind them, which must be there.
std::string Taken(BodyBuffer& buffer)
{
    const std::size_t size = buffer.Size();
    const std::unique_ptr<char[]> joined = buffer.Join();
    CHECK(joined[size] == '\0');
    return std::string(joined.get(), size);
}
} // namespace

TEST_CASE("BodyBuffer: an empty one joins to a NUL alone", "[connection]")
{
    BodyBuffer buffer;
    CHECK(buffer.Size() == 0);
    CHECK(buffer.Join()[0] == '\0');
    CHECK(buffer.Size() == 0);
}

TEST_CASE("BodyBuffer: room that was reserved and not taken is no content", "[connection]")
{
    BodyBuffer buffer;
    std::memset(buffer.Reserve(8192), 'x', 8192);
    buffer.Commit(0);
    CHECK(buffer.Size() == 0);
    CHECK(buffer.Join()[0] == '\0');

    std::memcpy(buffer.Reserve(8192), "abcdef", 6);
    buffer.Commit(2);
    std::memcpy(buffer.Reserve(8192), "gh", 2);
    buffer.Commit(2);
    CHECK(Taken(buffer) == "abgh");
}

TEST_CASE("BodyBuffer: a piece is filled to its last byte", "[connection]")
{
    BodyBuffer buffer;
    const char* const first = buffer.Reserve(1); // of 16 KB
    buffer.Commit(1);
    CHECK(buffer.Reserve(16'383) == first + 1);
    buffer.Commit(16'383);
    CHECK(buffer.Reserve(1) != first + 16'384);
    CHECK(buffer.Size() == 16'384);
}

TEST_CASE("BodyBuffer: bytes come out as they went in, whatever the pieces", "[connection]")
{
    const auto [size, step, room] = GENERATE(table<std::size_t, std::size_t, std::size_t>({
        {1, 1, 8192},
        {8191, 8192, 8192},
        {8192, 8192, 8192},
        {8193, 8192, 8192},
        {1000, 1, 1},
        {kMiB - 1, 8192, 8192},
        {kMiB, 8192, 8192},
        {kMiB + 1, 8192, 8192},
        {3 * kMiB + 77, 8191, 8192},
        {3 * kMiB + 77, 4000, 8192},    // pieces with room left at their ends
        {5 * kMiB, 2 * kMiB, 2 * kMiB}, // more than a piece at once
        {5 * kMiB, kMiB, 3 * kMiB},     // more room than is taken
    }));
    CAPTURE(size, step, room);
    const std::string bytes = Bytes(size);
    BodyBuffer buffer;
    Fill(buffer, bytes, step, room);
    CHECK(buffer.Size() == size);
    CHECK(Taken(buffer) == bytes);
}

TEST_CASE("BodyBuffer: it is empty after a join and collects again", "[connection]")
{
    BodyBuffer buffer;
    Fill(buffer, "first", 2, 100);
    CHECK(Taken(buffer) == "first");
    CHECK(buffer.Size() == 0);
    CHECK(buffer.Join()[0] == '\0');
    Fill(buffer, "second", 6, 100);
    CHECK(Taken(buffer) == "second");
}

TEST_CASE("BodyBuffer: NUL bytes are bytes", "[connection]")
{
    BodyBuffer buffer;
    const std::string bytes("a\0b\0\0c\0", 7);
    Fill(buffer, bytes, 3, 10);
    CHECK(Taken(buffer) == bytes);
}

#ifdef _WIN32 // the sanitizers end the process instead
TEST_CASE("BodyBuffer: room that cannot be had leaves what is there", "[connection]")
{
    BodyBuffer buffer;
    Fill(buffer, "kept", 4, 10);
    // More than any allocator gives, and less than what it takes for a mistake.
    CHECK_THROWS_AS(buffer.Reserve(std::numeric_limits<std::ptrdiff_t>::max() - 4096),
                    std::bad_alloc);
    CHECK(buffer.Size() == 4);
    CHECK(Taken(buffer) == "kept");
}
#endif
