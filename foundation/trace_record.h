#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace velt
{
/// The magic of a trace record, the bytes "21TU"; also the dwData of its COPYDATASTRUCT.
inline constexpr std::uint32_t kTraceMagic = 0x55543132;

/// Longest source name and longest text of a record, in characters without the final NUL.
inline constexpr std::size_t kTraceSourceMax = 63;
inline constexpr std::size_t kTraceTextMax = 1023;

/// Window class by which a trace viewer is found; viewers use it as their title too.
inline constexpr wchar_t kTraceViewerClass[] = L"Pembrook Corporation::Trace::1.0";

/// One record as it is sent to the trace viewer. All integers are little-endian:
///
///     offset size
///     0      4    total length in bytes = 82 + length of the text
///     4      4    magic "21TU"
///     8      4    level
///     12     4    category
///     16     1    reserved, 0
///     17     64   source name, at most 63 characters, the rest zero
///     81     n+1  text, at most 1023 characters, NUL-terminated
struct TraceRecord
{
    std::array<std::byte, 1108> bytes;
    std::size_t size; // of the record, in bytes
};

/// Encodes a record. Source and text are cut to the lengths above and at their first NUL.
TraceRecord EncodeTraceRecord(std::int32_t level, std::uint32_t category, std::string_view source,
                              std::string_view text) noexcept;
} // namespace velt
