#include "service/scrambled_text.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace velt
{
namespace
{
constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr std::uint8_t kNoDigit = 0xFF;
constexpr std::size_t kChecksumBytes = 4;
constexpr std::uint32_t kKey = 0x56454C54;

constexpr std::array<std::uint8_t, 256> MakeDigits()
{
    std::array<std::uint8_t, 256> digits{};
    digits.fill(kNoDigit);
    for (std::size_t i = 0; i < kAlphabet.size(); ++i)
    {
        digits[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
    }
    return digits;
}
constexpr std::array<std::uint8_t, 256> kDigits = MakeDigits();

/// CRC-32 of one byte followed by 0 to 3 zero bytes: four bytes of the input are taken at once.
using CrcTables = std::array<std::array<std::uint32_t, 256>, 4>;

constexpr CrcTables MakeCrcTables()
{
    constexpr std::uint32_t kPolynomial = 0xEDB88320;
    CrcTables tables{};
    for (std::uint32_t byte = 0; byte < 256; ++byte)
    {
        std::uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit)
        {
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? kPolynomial : 0);
        }
        tables[0][byte] = crc;
    }
    for (std::size_t zeros = 1; zeros < tables.size(); ++zeros)
    {
        for (std::size_t byte = 0; byte < 256; ++byte)
        {
            const std::uint32_t crc = tables[zeros - 1][byte];
            tables[zeros][byte] = (crc >> 8) ^ tables[0][crc & 0xFF];
        }
    }
    return tables;
}
constexpr CrcTables kCrc = MakeCrcTables();

/// Four bytes as a number, the lowest first; the compiler makes one load of it.
std::uint32_t LoadWord(const unsigned char* bytes) noexcept
{
    return bytes[0] | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
           std::uint32_t{bytes[3]} << 24;
}

void StoreWord(unsigned char* bytes, std::uint32_t word) noexcept
{
    for (std::size_t i = 0; i < 4; ++i)
    {
        bytes[i] = static_cast<unsigned char>(word >> (8 * i));
    }
}

std::uint32_t Crc32(const unsigned char* bytes, std::size_t size) noexcept
{
    std::uint32_t crc = 0xFFFFFFFF;
    for (; size >= 4; bytes += 4, size -= 4)
    {
        const std::uint32_t word = crc ^ LoadWord(bytes);
        crc = kCrc[3][word & 0xFF] ^ kCrc[2][word >> 8 & 0xFF] ^ kCrc[1][word >> 16 & 0xFF] ^
              kCrc[0][word >> 24];
    }
    for (; size > 0; ++bytes, --size)
    {
        crc = (crc >> 8) ^ kCrc[0][(crc ^ *bytes) & 0xFF];
    }
    return ~crc;
}

/// The next word of the stream; `state` is never 0.
std::uint32_t StreamWord(std::uint32_t& state) noexcept
{
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return state;
}

/// Scrambles clear bytes in place, or makes scrambled ones clear.
void ApplyStream(unsigned char* bytes, std::size_t size, std::uint32_t checksum) noexcept
{
    std::uint32_t state = checksum == kKey ? kKey : checksum ^ kKey;
    for (; size >= 4; bytes += 4, size -= 4)
    {
        StoreWord(bytes, LoadWord(bytes) ^ StreamWord(state));
    }
    for (std::uint32_t word = StreamWord(state); size > 0; ++bytes, --size, word >>= 8)
    {
        *bytes = static_cast<unsigned char>(*bytes ^ word);
    }
}

/// Writes the digits of one to three bytes, one more than there are bytes.
void EncodeTail(const unsigned char* bytes, std::size_t size, char* text) noexcept
{
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i)
    {
        group = group << 8 | (i < size ? bytes[i] : 0u);
    }
    for (std::size_t i = 0; i <= size; ++i)
    {
        text[i] = kAlphabet[group >> (18 - 6 * i) & 0x3F];
    }
}

/// Reads two to four digits into the top of 24 bits. False for a character that is none.
bool DecodeTail(const unsigned char* text, std::size_t size, std::uint32_t& group) noexcept
{
    group = 0;
    for (std::size_t i = 0; i < size; ++i)
    {
        const std::uint8_t digit = kDigits[text[i]];
        if (digit == kNoDigit)
        {
            return false;
        }
        group |= std::uint32_t{digit} << (18 - 6 * i);
    }
    return true;
}

std::string EncodeBase64(const unsigned char* bytes, std::size_t size)
{
    std::string text((size * 4 + 2) / 3, '\0');
    char* out = text.data();
    for (; size >= 3; bytes += 3, size -= 3, out += 4)
    {
        const std::uint32_t group =
            std::uint32_t{bytes[0]} << 16 | std::uint32_t{bytes[1]} << 8 | bytes[2];
        out[0] = kAlphabet[group >> 18];
        out[1] = kAlphabet[group >> 12 & 0x3F];
        out[2] = kAlphabet[group >> 6 & 0x3F];
        out[3] = kAlphabet[group & 0x3F];
    }
    if (size > 0)
    {
        EncodeTail(bytes, size, out);
    }
    return text;
}

std::optional<std::string> DecodeBase64(std::string_view text)
{
    std::size_t left = text.size();
    if (left % 4 == 1)
    {
        return std::nullopt;
    }
    std::string bytes(left / 4 * 3 + (left % 4 == 0 ? 0 : left % 4 - 1), '\0');
    const auto* in = reinterpret_cast<const unsigned char*>(text.data());
    auto* out = reinterpret_cast<unsigned char*>(bytes.data());
    std::uint32_t seen = 0; // a character that is no digit sets bits above the sixth
    for (; left >= 4; in += 4, left -= 4, out += 3)
    {
        const std::uint32_t first = kDigits[in[0]];
        const std::uint32_t second = kDigits[in[1]];
        const std::uint32_t third = kDigits[in[2]];
        const std::uint32_t fourth = kDigits[in[3]];
        seen |= first | second | third | fourth;
        out[0] = static_cast<unsigned char>(first << 2 | second >> 4);
        out[1] = static_cast<unsigned char>(second << 4 | third >> 2);
        out[2] = static_cast<unsigned char>(third << 6 | fourth);
    }
    if (seen > 0x3F)
    {
        return std::nullopt;
    }
    if (left > 0)
    {
        std::uint32_t group = 0;
        const std::size_t tailBytes = left - 1;
        // Bits that belong to no byte are 0, so that one content has one text.
        if (!DecodeTail(in, left, group) || (group << (8 + 8 * tailBytes)) != 0)
        {
            return std::nullopt;
        }
        for (std::size_t i = 0; i < tailBytes; ++i)
        {
            out[i] = static_cast<unsigned char>(group >> (16 - 8 * i));
        }
    }
    return bytes;
}
} // namespace

std::string Scramble(std::string_view clear)
{
    std::string bytes(kChecksumBytes + clear.size(), '\0');
    auto* const start = reinterpret_cast<unsigned char*>(bytes.data());
    if (!clear.empty())
    {
        std::memcpy(start + kChecksumBytes, clear.data(), clear.size());
    }
    const std::uint32_t checksum = Crc32(start + kChecksumBytes, clear.size());
    StoreWord(start, checksum);
    ApplyStream(start + kChecksumBytes, clear.size(), checksum);
    return EncodeBase64(start, bytes.size());
}

std::optional<std::string> Unscramble(std::string_view text)
{
    std::optional<std::string> bytes = DecodeBase64(text);
    if (!bytes || bytes->size() < kChecksumBytes)
    {
        return std::nullopt;
    }
    auto* const start = reinterpret_cast<unsigned char*>(bytes->data());
    const std::size_t size = bytes->size() - kChecksumBytes;
    const std::uint32_t checksum = LoadWord(start);
    ApplyStream(start + kChecksumBytes, size, checksum);
    if (Crc32(start + kChecksumBytes, size) != checksum)
    {
        return std::nullopt;
    }
    bytes->erase(0, kChecksumBytes);
    return bytes;
}
} // namespace velt
