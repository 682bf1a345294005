#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <vector>

namespace velt
{
/// Collects bytes whose number is not known beforehand, in pieces, so that what is there is never
/// copied to make room, and joins them at the end. Memory stays below twice the number of bytes.
class BodyBuffer
{
public:
    /// The place for the next bytes, `sizeBytes` of them. Throws std::bad_alloc.
    char* Reserve(std::size_t sizeBytes)
    {
        if (m_pieces.empty() || m_pieces.back().room - m_pieces.back().used < sizeBytes)
        {
            // Each piece about as large as what is there, so that small bodies need little.
            const std::size_t room =
                std::max(std::clamp(m_size, kLeastBytes, kMostBytes), sizeBytes);
            m_pieces.push_back({std::make_unique_for_overwrite<char[]>(room), room, 0});
        }
        return m_pieces.back().bytes.get() + m_pieces.back().used;
    }

    /// Takes `sizeBytes` of the bytes last reserved.
    void Commit(std::size_t sizeBytes) noexcept
    {
        m_pieces.back().used += sizeBytes;
        m_size += sizeBytes;
    }

    /// The number of bytes collected.
    std::size_t Size() const noexcept
    {
        return m_size;
    }

    /// All bytes in one block, followed by a NUL; the buffer is empty afterwards.
    /// Throws std::bad_alloc.
    std::unique_ptr<char[]> Join()
    {
        auto joined = std::make_unique_for_overwrite<char[]>(m_size + 1);
        std::size_t at = 0;
        for (Piece& piece : m_pieces)
        {
            std::memcpy(joined.get() + at, piece.bytes.get(), piece.used);
            at += piece.used;
            piece.bytes.reset();
        }
        joined[at] = '\0';
        m_pieces.clear();
        m_size = 0;
        return joined;
    }

private:
    static constexpr std::size_t kLeastBytes = 16384;
    static constexpr std::size_t kMostBytes = std::size_t{1} << 20;

    struct Piece
    {
        std::unique_ptr<char[]> bytes;
        std::size_t room;
        std::size_t used;
    };

    std::vector<Piece> m_pieces;
    std::size_t m_size = 0;
};
} // namespace velt
