#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velt
{
/// A text to look for, anywhere in another one: `*` stands for any characters, `?` for one, and
/// `\*` and `\?` for themselves. ASCII letters match in both cases. The empty one is in every text.
class TextPattern
{
public:
    TextPattern() = default;

    /// Every text, in UTF-8, is valid. From texts as they stand, so that a filter can be written
    /// down. Throws std::bad_alloc.
    TextPattern(std::string text);
    TextPattern(const char* text) : TextPattern(std::string(text)) {}

    const std::string& Text() const noexcept
    {
        return m_text;
    }

    bool IsEmpty() const noexcept
    {
        return m_text.empty();
    }

    bool IsIn(std::string_view text) const noexcept;

    bool operator==(const TextPattern& other) const noexcept
    {
        return m_text == other.m_text;
    }

private:
    /// Characters that stand as they are, small, and how many of any kind are behind them.
    struct Piece
    {
        std::string small;
        std::size_t anchor = 0; // the place of its rarest character
        std::size_t anyBehind = 0;
    };

    /// What stands between two `*`.
    struct Segment
    {
        std::size_t anyBefore = 0;
        std::vector<Piece> pieces;
    };

    static std::size_t FindPiece(const Piece& piece, std::string_view text,
                                 std::size_t from) noexcept;
    static std::optional<std::size_t> EndOf(const Segment& segment, std::string_view text,
                                            std::size_t from) noexcept;

    std::string m_text;
    std::vector<Segment> m_segments;
};
} // namespace velt
