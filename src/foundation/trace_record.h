#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
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

/// What is wrong with bytes that were sent as a record.
enum class TraceRecordFault : std::uint8_t
{
    none,
    tooShort, // fewer bytes than a record with an empty text has
    wrongMagic,
    wrongTotal,       // not the number of bytes, not 82 + length of the text, or too many
    sourceWithoutEnd, // no zero among the 64 bytes of the source name
    textWithoutEnd,   // no zero among the bytes of the text
};

/// A record taken apart. Source and text point into the bytes and lie within their lengths above;
/// with a fault, all else is empty or 0.
struct DecodedTraceRecord
{
    TraceRecordFault fault = TraceRecordFault::none;
    std::int32_t level = 0;
    std::uint32_t category = 0;
    std::string_view source;
    std::string_view text;
};

/// Takes a record apart that came from another process, so every byte is checked before it is used.
DecodedTraceRecord DecodeTraceRecord(std::span<const std::byte> bytes) noexcept;
} // namespace velt
