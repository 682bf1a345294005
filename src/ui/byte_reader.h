#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>

namespace velt
{
/// Reads the parts of a resource one after another. Past the end it answers zeros and remembers.
class ByteReader
{
public:
    explicit ByteReader(std::span<const std::byte> bytes) noexcept : m_bytes(bytes) {}

    /// Whether everything that was asked for was there.
    bool IsWhole() const noexcept
    {
        return m_whole;
    }

    std::size_t Position() const noexcept
    {
        return m_at;
    }

    std::uint16_t Word() noexcept
    {
        std::uint16_t value = 0;
        if (Skip(sizeof(value)))
        {
            std::memcpy(&value, &m_bytes[m_at - sizeof(value)], sizeof(value));
        }
        return value;
    }

    std::uint32_t DoubleWord() noexcept
    {
        const std::uint32_t low = Word();
        return low | static_cast<std::uint32_t>(Word()) << 16;
    }

    bool Skip(std::size_t count) noexcept
    {
        m_whole = m_whole && count <= m_bytes.size() - m_at;
        m_at += m_whole ? count : 0;
        return m_whole;
    }

    /// The next bytes; none when there are not so many.
    std::span<const std::byte> Bytes(std::size_t count) noexcept
    {
        const std::size_t start = m_at;
        return Skip(count) ? m_bytes.subspan(start, count) : std::span<const std::byte>();
    }

    /// To the next place that is a multiple of four.
    void Align() noexcept
    {
        Skip((4 - m_at % 4) % 4);
    }

    /// The rest of a text whose first character was read, up to its zero.
    std::u16string Text(char16_t first)
    {
        std::u16string text;
        for (char16_t c = first; c != 0; c = Word())
        {
            text += c;
        }
        return text;
    }

private:
    std::span<const std::byte> m_bytes;
    std::size_t m_at = 0;
    bool m_whole = true;
};
} // namespace velt
