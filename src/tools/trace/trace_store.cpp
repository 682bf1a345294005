#include "tools/trace/trace_store.h"

#include <algorithm>
#include <cstring>

namespace velt
{
namespace
{
/// What stands before the source and the text of a stored record.
struct Header
{
    std::int64_t arrivalUs;
    std::uint32_t sender;
    std::uint32_t process;
    std::int32_t level;
    std::uint16_t textSize;
    std::uint8_t sourceSize;
    TraceRecordFault fault;
};

constexpr std::size_t kTextMost = 65535;
constexpr std::size_t kSourceMost = 255;
static_assert(sizeof(Header) + kSourceMost + kTextMost <= TraceStore::kBlockBytes);

void Put(std::byte*& to, const void* from, std::size_t size) noexcept
{
    if (size != 0)
    {
        std::memcpy(to, from, size);
    }
    to += size;
}
} // namespace

void TraceStore::Append(const TraceEntry& entry)
{
    const std::string_view source = entry.source.substr(0, kSourceMost);
    const std::string_view text = entry.text.substr(0, kTextMost);
    const Header header{entry.arrivalUs,
                        entry.sender,
                        entry.process,
                        entry.level,
                        static_cast<std::uint16_t>(text.size()),
                        static_cast<std::uint8_t>(source.size()),
                        entry.fault};
    if (m_places.size() >= m_limits.records + m_limits.records / 16 + 1)
    {
        DropOldest(m_places.size() - m_limits.records);
    }
    const Place place = Reserve(sizeof(header) + source.size() + text.size());
    std::byte* at = m_blocks.back().get() + place.offset;
    Put(at, &header, sizeof(header));
    Put(at, source.data(), source.size());
    Put(at, text.data(), text.size());
    m_places.push_back(place);
    m_used = static_cast<std::size_t>(at - m_blocks.back().get());
}

void TraceStore::Clear() noexcept
{
    m_first = Next();
    m_firstBlock += static_cast<std::uint32_t>(m_blocks.size());
    m_places.clear();
    m_places.shrink_to_fit();
    m_blocks.clear();
    m_used = kBlockBytes;
    m_dropped = 0;
}

TraceEntry TraceStore::At(std::uint64_t sequence) const noexcept
{
    const Place place = m_places[static_cast<std::size_t>(sequence - m_first)];
    const std::byte* at = m_blocks[place.block - m_firstBlock].get() + place.offset;
    Header header{};
    std::memcpy(&header, at, sizeof(header));
    const auto* const texts = reinterpret_cast<const char*>(at + sizeof(header));
    TraceEntry entry;
    entry.arrivalUs = header.arrivalUs;
    entry.sender = header.sender;
    entry.process = header.process;
    entry.level = header.level;
    entry.fault = header.fault;
    entry.source = {texts, header.sourceSize};
    entry.text = {texts + header.sourceSize, header.textSize};
    return entry;
}

TraceStore::Place TraceStore::Reserve(std::size_t size)
{
    if (m_used + size > kBlockBytes)
    {
        const std::size_t most = std::max<std::size_t>(m_limits.bytes / kBlockBytes, 2);
        if (m_blocks.size() >= most)
        {
            // The records of the oldest block go, and with them the block.
            const auto end = std::find_if(m_places.begin(), m_places.end(),
                                          [&](Place place) { return place.block != m_firstBlock; });
            DropOldest(static_cast<std::size_t>(end - m_places.begin()));
        }
        m_blocks.push_back(std::make_unique_for_overwrite<std::byte[]>(kBlockBytes));
        m_used = 0;
    }
    return {m_firstBlock + static_cast<std::uint32_t>(m_blocks.size()) - 1,
            static_cast<std::uint32_t>(m_used)};
}

void TraceStore::DropOldest(std::size_t count) noexcept
{
    m_places.erase(m_places.begin(), m_places.begin() + static_cast<std::ptrdiff_t>(count));
    m_first += count;
    m_dropped += count;
    while (!m_blocks.empty() &&
           (m_places.empty() ? m_blocks.size() > 1 : m_places.front().block != m_firstBlock))
    {
        m_blocks.pop_front();
        ++m_firstBlock;
    }
}
} // namespace velt
