#include "tools/trace/arrival_queue.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace velt
{
namespace
{
constexpr std::size_t kBlockBytes = std::size_t{256} << 10;
} // namespace

void ArrivalQueue::Append(const Arrival& arrival, std::span<const std::byte> data) noexcept
{
    const std::span<const std::byte> kept = data.first(std::min(data.size(), kMostKept));
    const std::size_t size = sizeof(arrival) + kept.size();
    try
    {
        if (m_blocks.empty() || m_blocks.back().bytes.size() + size > kBlockBytes)
        {
            if (m_blocks.size() >= std::max<std::size_t>(m_mostBytes / kBlockBytes, 1))
            {
                m_lost += m_blocks.front().count;
                m_blocks.pop_front();
            }
            Block block;
            block.bytes.reserve(kBlockBytes);
            m_blocks.push_back(std::move(block));
        }
        Block& block = m_blocks.back();
        const std::size_t at = block.bytes.size();
        block.bytes.resize(at + size); // within what was reserved
        std::memcpy(block.bytes.data() + at, &arrival, sizeof(arrival));
        if (!kept.empty())
        {
            std::memcpy(block.bytes.data() + at + sizeof(arrival), kept.data(), kept.size());
        }
        ++block.count;
    }
    catch (const std::bad_alloc&)
    {
        ++m_lost;
    }
}

ArrivalQueue::Item ArrivalQueue::FrontOf(std::span<const std::byte> rest) noexcept
{
    Item item;
    std::memcpy(&item.arrival, rest.data(), sizeof(item.arrival));
    const std::size_t kept = std::min<std::size_t>(item.arrival.sizeBytes, kMostKept);
    item.data = rest.subspan(sizeof(item.arrival), kept);
    item.size = sizeof(item.arrival) + kept;
    return item;
}
} // namespace velt
