#include "foundation/trace_record.h"

#include <algorithm>

namespace velt
{
namespace
{
constexpr std::size_t kSourceOffset = 17;
constexpr std::size_t kTextOffset = kSourceOffset + kTraceSourceMax + 1;
static_assert(kTextOffset + kTraceTextMax + 1 <= sizeof(TraceRecord::bytes));

void PutUint32(std::byte* to, std::uint32_t value) noexcept
{
    for (int i = 0; i < 4; ++i)
    {
        to[i] = static_cast<std::byte>(value >> (8 * i));
    }
}

/// Copies at most `most` characters up to the first NUL; returns how many.
std::size_t PutText(std::byte* to, std::string_view text, std::size_t most) noexcept
{
    const std::string_view kept = text.substr(0, std::min(most, text.find('\0')));
    std::transform(kept.begin(), kept.end(), to, [](char c) { return static_cast<std::byte>(c); });
    return kept.size();
}

std::uint32_t GetUint32(const std::byte* from) noexcept
{
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i)
    {
        value |= std::to_integer<std::uint32_t>(from[i]) << (8 * i);
    }
    return value;
}

TraceRecordFault FaultOf(std::span<const std::byte> bytes, std::string_view source,
                         std::string_view text) noexcept
{
    if (GetUint32(bytes.data() + 4) != kTraceMagic)
    {
        return TraceRecordFault::wrongMagic;
    }
    if (GetUint32(bytes.data()) != bytes.size() || text.size() > kTraceTextMax + 1)
    {
        return TraceRecordFault::wrongTotal;
    }
    if (source.find('\0') == std::string_view::npos)
    {
        return TraceRecordFault::sourceWithoutEnd;
    }
    const std::size_t end = text.find('\0');
    if (end == std::string_view::npos)
    {
        return TraceRecordFault::textWithoutEnd;
    }
    return end + 1 == text.size() ? TraceRecordFault::none : TraceRecordFault::wrongTotal;
}
} // namespace

TraceRecord EncodeTraceRecord(std::int32_t level, std::uint32_t category, std::string_view source,
                              std::string_view text) noexcept
{
    TraceRecord record{};
    std::byte* const at = record.bytes.data();
    PutText(at + kSourceOffset, source, kTraceSourceMax);
    record.size = kTextOffset + PutText(at + kTextOffset, text, kTraceTextMax) + 1;
    PutUint32(at, static_cast<std::uint32_t>(record.size));
    PutUint32(at + 4, kTraceMagic);
    PutUint32(at + 8, static_cast<std::uint32_t>(level));
    PutUint32(at + 12, category);
    return record;
}

DecodedTraceRecord DecodeTraceRecord(std::span<const std::byte> bytes) noexcept
{
    DecodedTraceRecord record;
    if (bytes.size() < kTextOffset + 1)
    {
        record.fault = TraceRecordFault::tooShort;
        return record;
    }
    const auto* const characters = reinterpret_cast<const char*>(bytes.data());
    const std::string_view source(characters + kSourceOffset, kTextOffset - kSourceOffset);
    const std::string_view text(characters + kTextOffset, bytes.size() - kTextOffset);
    record.fault = FaultOf(bytes, source, text);
    if (record.fault == TraceRecordFault::none)
    {
        record.level = static_cast<std::int32_t>(GetUint32(bytes.data() + 8));
        record.category = GetUint32(bytes.data() + 12);
        record.source = source.substr(0, source.find('\0'));
        record.text = text.substr(0, text.size() - 1);
    }
    return record;
}
} // namespace velt
