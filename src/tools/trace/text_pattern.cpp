#include "tools/trace/text_pattern.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace velt
{
namespace
{
using Word = std::uintptr_t; // as many bytes as are looked at together

constexpr Word kOnes = static_cast<Word>(-1) / 0xFF; // 1 in each byte
constexpr Word kTops = kOnes << 7;

constexpr char Small(char c) noexcept
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// How seldom a character is in traces: the rarer, the fewer places are looked at twice.
int RarityOf(char c) noexcept
{
    constexpr std::string_view kCommonFirst = " etrnaioscldum-g:_hpf.bvy0k1=23456789()xwqjz";
    const std::size_t place = kCommonFirst.find(c);
    return static_cast<int>(std::min(place, kCommonFirst.size()));
}

/// The first place from `from` on where a character is, in either case; the size when there is
/// none. Letters differ from their capitals in one bit, so that bit is set everywhere: the caller
/// looks whether it is the character.
std::size_t FindFolded(std::string_view text, std::size_t from, char small) noexcept
{
    const bool letter = small >= 'a' && small <= 'z';
    const Word fold = letter ? kOnes * 0x20 : 0;
    const Word wanted = kOnes * static_cast<unsigned char>(small);
    std::size_t at = from;
    for (; at + sizeof(Word) <= text.size(); at += sizeof(Word))
    {
        Word word = 0;
        std::memcpy(&word, text.data() + at, sizeof(word));
        const Word difference = (word | fold) ^ wanted; // 0 in the byte that is looked for
        if (((difference - kOnes) & ~difference & kTops) != 0)
        {
            break; // the lowest such byte is exact, and so is "none"
        }
    }
    for (; at < text.size(); ++at)
    {
        if (Small(text[at]) == small)
        {
            return at;
        }
    }
    return text.size();
}

bool StartsWith(std::string_view text, std::string_view small) noexcept
{
    return text.size() >= small.size() && std::equal(small.begin(), small.end(), text.begin(),
                                                     [](char a, char b) { return a == Small(b); });
}

constexpr bool IsInsideCharacter(char c) noexcept
{
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

/// Where `count` characters from `at` on end; none when there are fewer.
std::optional<std::size_t> Skip(std::string_view text, std::size_t at, std::size_t count) noexcept
{
    for (; count > 0; --count)
    {
        if (at >= text.size())
        {
            return std::nullopt;
        }
        ++at;
        while (at < text.size() && IsInsideCharacter(text[at]))
        {
            ++at;
        }
    }
    return at;
}
} // namespace

TextPattern::TextPattern(std::string text) : m_text(std::move(text))
{
    bool open = false; // whether the last segment may grow
    bool inPiece = false;
    const auto segment = [&]() -> Segment& {
        if (!open)
        {
            m_segments.emplace_back();
            open = true;
            inPiece = false;
        }
        return m_segments.back();
    };
    for (std::size_t at = 0; at < m_text.size(); ++at)
    {
        char c = m_text[at];
        const bool escaped =
            c == '\\' && at + 1 < m_text.size() && (m_text[at + 1] == '*' || m_text[at + 1] == '?');
        if (escaped)
        {
            c = m_text[++at];
        }
        if (c == '*' && !escaped)
        {
            open = false;
            continue;
        }
        Segment& last = segment();
        if (c == '?' && !escaped)
        {
            ++(last.pieces.empty() ? last.anyBefore : last.pieces.back().anyBehind);
            inPiece = false;
            continue;
        }
        if (!inPiece)
        {
            last.pieces.emplace_back();
            inPiece = true;
        }
        last.pieces.back().small += Small(c);
    }
    for (Segment& each : m_segments)
    {
        for (Piece& piece : each.pieces)
        {
            const auto rarest =
                std::max_element(piece.small.begin(), piece.small.end(),
                                 [](char a, char b) { return RarityOf(a) < RarityOf(b); });
            piece.anchor = static_cast<std::size_t>(rarest - piece.small.begin());
        }
    }
}

bool TextPattern::IsIn(std::string_view text) const noexcept
{
    std::size_t at = 0;
    for (const Segment& segment : m_segments)
    {
        const std::optional<std::size_t> end = EndOf(segment, text, at);
        if (!end)
        {
            return false;
        }
        at = *end; // the earliest end leaves the others the most room
    }
    return true;
}

std::size_t TextPattern::FindPiece(const Piece& piece, std::string_view text,
                                   std::size_t from) noexcept
{
    const char anchor = piece.small[piece.anchor];
    for (std::size_t at = from + piece.anchor;
         (at = FindFolded(text, std::min(at, text.size()), anchor)) < text.size(); ++at)
    {
        if (StartsWith(text.substr(at - piece.anchor), piece.small))
        {
            return at - piece.anchor;
        }
    }
    return std::string_view::npos;
}

/// Where the first occurrence of a segment from `from` on ends.
std::optional<std::size_t> TextPattern::EndOf(const Segment& segment, std::string_view text,
                                              std::size_t from) noexcept
{
    std::optional<std::size_t> start = Skip(text, from, segment.anyBefore);
    if (segment.pieces.empty() || !start)
    {
        return start;
    }
    const Piece& first = segment.pieces.front();
    for (std::size_t at = *start; (at = FindPiece(first, text, at)) != std::string_view::npos; ++at)
    {
        std::optional<std::size_t> end = at;
        for (const Piece& piece : segment.pieces)
        {
            if (!StartsWith(text.substr(*end), piece.small))
            {
                end.reset();
                break;
            }
            end = Skip(text, *end + piece.small.size(), piece.anyBehind);
            if (!end)
            {
                break;
            }
        }
        if (end)
        {
            return end;
        }
    }
    return std::nullopt;
}
} // namespace velt
