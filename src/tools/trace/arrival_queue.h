#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <utility>
#include <vector>

namespace velt
{
/// What is known about a message when it arrives.
struct Arrival
{
    enum class Origin : std::uint32_t
    {
        message,     // sent to the viewer's window
        debugOutput, // written for a debugger: the data are the text
    };

    std::int64_t arrivalUs = 0;  // local time, in microseconds since 1601
    std::uint32_t processId = 0; // of the sender; 0 when the message does not tell
    std::uint32_t sizeBytes = 0; // of the data, also of what was not kept
    std::uint32_t dataKind = 0;  // dwData of the COPYDATASTRUCT
    Origin origin = Origin::message;
};

/// Messages as they arrived, waiting to be looked at: one thread appends, another one takes all at
/// once. Adding is one copy, so that a sender is held no longer. Bounded: when nobody takes, the
/// oldest are lost and counted. The lock is the owner's.
class ArrivalQueue
{
public:
    /// More than the longest record, and enough to show what a malformed one was.
    static constexpr std::size_t kMostKept = 4096;

    explicit ArrivalQueue(std::size_t mostBytes = std::size_t{64} << 20) noexcept
        : m_mostBytes(mostBytes)
    {
    }

    /// Keeps a message with the front of its data. Never throws: without memory it is lost.
    void Append(const Arrival& arrival, std::span<const std::byte> data) noexcept;

    bool IsEmpty() const noexcept
    {
        return m_blocks.empty() && m_lost == 0;
    }

    /// Takes what is there and leaves an empty queue with the same bound. Throws std::bad_alloc.
    ArrivalQueue Take()
    {
        return std::exchange(*this, ArrivalQueue(m_mostBytes));
    }

    std::uint64_t Lost() const noexcept
    {
        return m_lost;
    }

    /// Calls `visit(const Arrival&, std::span<const std::byte>)` for each message in order.
    template <class Visit>
    void ForEach(Visit&& visit) const
    {
        for (const Block& block : m_blocks)
        {
            std::span<const std::byte> rest(block.bytes);
            while (!rest.empty())
            {
                const Item item = FrontOf(rest);
                visit(item.arrival, item.data);
                rest = rest.subspan(item.size);
            }
        }
    }

private:
    struct Block
    {
        std::vector<std::byte> bytes;
        std::uint32_t count = 0;
    };

    struct Item
    {
        Arrival arrival;
        std::span<const std::byte> data;
        std::size_t size = 0; // of all that is stored of it
    };

    static Item FrontOf(std::span<const std::byte> rest) noexcept;

    std::size_t m_mostBytes;
    std::deque<Block> m_blocks;
    std::uint64_t m_lost = 0;
};
} // namespace velt
