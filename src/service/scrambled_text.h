#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velt
{
/// Turns bytes into text of the characters A-Z, a-z, 0-9, '-' and '_', which every cookie can hold.
/// It hides them from a casual reader; it is no encryption, and everybody can undo it.
///
/// The text is base64 with the alphabet of URLs and no padding, of:
///   4 bytes           CRC-32 of the clear bytes, the lowest byte first
///   the clear bytes   each one xor the stream that StreamWord makes from that checksum
/// Throws std::bad_alloc only.
std::string Scramble(std::string_view clear);

/// The clear bytes again; none when the text is cut, damaged or not of this kind.
/// Throws std::bad_alloc only.
std::optional<std::string> Unscramble(std::string_view text);
} // namespace velt
