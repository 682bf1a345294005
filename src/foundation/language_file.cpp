#include "foundation/language_file.h"

#include "foundation/utf.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>
#include <utility>

namespace velt
{
namespace
{
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kWhiteSpace = " \t\v\f";

std::u16string DecodeUtf16(std::string_view bytes)
{
    const bool bigEndian = bytes.substr(0, 2) == "\xFE\xFF";
    const std::size_t units = bytes.empty() ? 0 : (bytes.size() - 1) / 2;
    std::u16string text;
    text.reserve(units);
    for (std::size_t i = 0; i < units; ++i)
    {
        const std::size_t at = 2 + 2 * i;
        const unsigned first = static_cast<unsigned char>(bytes[at]);
        if (at + 1 == bytes.size()) // no partner: neither swapped nor read past the end
        {
            text.push_back(static_cast<char16_t>(first));
            break;
        }
        const unsigned second = static_cast<unsigned char>(bytes[at + 1]);
        const unsigned unit = bigEndian ? (first << 8 | second) : (second << 8 | first);
        text.push_back(static_cast<char16_t>(unit));
    }
    return text;
}

/// The text as well-formed UTF-8.
std::string Decode(std::string_view bytes)
{
    constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
    if (bytes.starts_with(kUtf8Mark))
    {
        // There and back, so that bytes which are not UTF-8 never get into our strings.
        return Utf8FromUtf16(Utf16FromUtf8(bytes.substr(kUtf8Mark.size())));
    }
    return Utf8FromUtf16(DecodeUtf16(bytes));
}

struct Number
{
    std::int32_t value; // 0 when there is none, or when it does not fit
    std::size_t size;   // characters taken
};

/// Reads a signed number at the very start of the text. In base 16 a prefix "0x" is taken too.
Number ReadNumber(std::string_view text, int base)
{
    std::size_t at = 0;
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+'))
    {
        at = 1;
    }
    if (base == 16 && text.substr(at).starts_with("0x"))
    {
        at += 2;
    }
    std::uint32_t magnitude = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + at, end, magnitude, base);
    const auto size = static_cast<std::size_t>(stop - text.data());
    const std::int64_t value = negative ? -std::int64_t{magnitude} : std::int64_t{magnitude};
    if (error != std::errc{} || !std::in_range<std::int32_t>(value))
    {
        return {0, size};
    }
    return {static_cast<std::int32_t>(value), size};
}

/// Reads "<id> <text>" from a line that is not empty; nothing when the line has no id.
std::optional<std::pair<std::int32_t, std::string_view>> ReadLine(std::string_view line)
{
    if (line.front() == ';' || line.front() == '#')
    {
        return std::nullopt;
    }
    Number id = ReadNumber(line, 10);
    if (id.value == 0 && line.substr(id.size).starts_with('x'))
    {
        id = ReadNumber(line, 16);
    }
    if (id.value == 0)
    {
        return std::nullopt;
    }
    std::string_view text = line.substr(id.size);
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    text = text.substr(0, text.find_last_not_of(kWhiteSpace) + 1);
    return std::pair{id.value, text};
}
} // namespace

Translations ParseLanguageFile(std::string_view bytes)
{
    constexpr std::string_view kLineEnds = "\r\n";
    const std::string decoded = Decode(bytes);
    Translations translations;
    for (std::string_view rest = decoded; !rest.empty();)
    {
        const std::string_view line = rest.substr(0, rest.find_first_of(kLineEnds));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        if (line.empty())
        {
            continue;
        }
        if (const auto entry = ReadLine(line))
        {
            translations.insert_or_assign(entry->first, std::string(entry->second));
        }
    }
    return translations;
}
} // namespace velt
