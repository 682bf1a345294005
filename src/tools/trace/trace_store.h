#pragma once

#include "foundation/trace_record.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string_view>

namespace velt
{
/// What is kept of a record that arrived. The texts point into whatever holds the record.
struct TraceEntry
{
    std::int64_t arrivalUs = 0; // local time of arrival, in microseconds since 1601
    std::uint32_t sender = 0;   // which name of a sender is shown, as the session numbers them
    std::uint32_t process = 0;  // id of the process that sent it; 0 when the record did not tell
    std::int32_t level = 0;
    TraceRecordFault fault = TraceRecordFault::none;
    std::string_view source; // UTF-8, at most 255 bytes
    std::string_view text;   // UTF-8, at most 65535 bytes
};

/// How much a store keeps: the newest `records` records at least, until they take more than
/// `bytes`. Of the longest ones that a program can send, 1,062,501 take 1126 MiB; only texts that
/// grow on their way from a code page to UTF-8 can be longer.
struct TraceStoreLimits
{
    std::size_t records = 1'000'000;
    std::size_t bytes = std::size_t{1152} << 20;

    bool operator==(const TraceStoreLimits&) const = default;
};

/// The records of a session in the order of their arrival, in bounded memory. Each has a sequence
/// number that it keeps; when the store is full, the oldest go, a sixteenth of it at once, so that
/// what a reader sees moves seldom. Texts lie behind each other in blocks of 1 MiB.
class TraceStore
{
public:
    static constexpr std::size_t kBlockBytes = std::size_t{1} << 20;

    explicit TraceStore(TraceStoreLimits limits = {}) noexcept : m_limits(limits) {}

    /// Adds a copy of a record; longer texts are cut to what an entry holds. Views into older
    /// entries may end. Throws std::bad_alloc, and adds nothing then.
    void Append(const TraceEntry& entry);

    /// Forgets all records. Sequence numbers go on.
    void Clear() noexcept;

    /// The entry with this number, from First() up to Next(). Valid until the next Append or Clear.
    TraceEntry At(std::uint64_t sequence) const noexcept;

    std::uint64_t First() const noexcept
    {
        return m_first;
    }

    std::uint64_t Next() const noexcept
    {
        return m_first + m_places.size();
    }

    std::size_t Size() const noexcept
    {
        return m_places.size();
    }

    /// How many records made room for newer ones since the last Clear.
    std::uint64_t Dropped() const noexcept
    {
        return m_dropped;
    }

private:
    struct Place
    {
        std::uint32_t block; // counted from the first block ever, so it may wrap
        std::uint32_t offset;
    };

    Place Reserve(std::size_t size);
    void DropOldest(std::size_t count) noexcept;

    TraceStoreLimits m_limits;
    std::deque<std::unique_ptr<std::byte[]>> m_blocks;
    std::uint32_t m_firstBlock = 0;
    std::size_t m_used = kBlockBytes; // of the last block
    std::deque<Place> m_places;
    std::uint64_t m_first = 0;
    std::uint64_t m_dropped = 0;
};
} // namespace velt
