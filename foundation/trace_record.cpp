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
} // namespace velt
