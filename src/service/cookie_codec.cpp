#include "service/cookie_codec.h"

#include "service/scrambled_text.h"

#include <algorithm>

namespace velt
{
namespace
{
void AppendNumber(std::string& bytes, std::uint32_t number)
{
    for (; number >= 0x80; number >>= 7)
    {
        bytes.push_back(static_cast<char>(number | 0x80));
    }
    bytes.push_back(static_cast<char>(number));
}

void AppendText(std::string& bytes, std::u16string_view text)
{
    AppendNumber(bytes, static_cast<std::uint32_t>(text.size()));
    for (const char16_t unit : text)
    {
        AppendNumber(bytes, unit);
    }
}

/// Takes a number off the front. None when the bytes end in the middle, when it does not fit, and
/// when a shorter form of it exists, so that one content has one text.
std::optional<std::uint32_t> TakeNumber(std::string_view& bytes) noexcept
{
    std::uint64_t number = 0;
    for (unsigned shift = 0; shift < 35 && !bytes.empty(); shift += 7)
    {
        const auto byte = static_cast<unsigned char>(bytes.front());
        bytes.remove_prefix(1);
        number |= std::uint64_t{byte & 0x7Fu} << shift;
        if (byte < 0x80)
        {
            const bool isShortest = byte != 0 || shift == 0;
            return isShortest && number <= 0xFFFFFFFF
                       ? std::optional(static_cast<std::uint32_t>(number))
                       : std::nullopt;
        }
    }
    return std::nullopt;
}

bool TakeText(std::string_view& bytes, std::u16string& text)
{
    const std::optional<std::uint32_t> length = TakeNumber(bytes);
    if (!length || *length > bytes.size()) // each unit is a byte at least
    {
        return false;
    }
    text.reserve(*length);
    for (std::uint32_t i = 0; i < *length; ++i)
    {
        const std::optional<std::uint32_t> unit = TakeNumber(bytes);
        if (!unit || *unit > 0xFFFF)
        {
            return false;
        }
        text.push_back(static_cast<char16_t>(*unit));
    }
    return true;
}

/// Takes the part before the first separator off the front, and the separator too.
std::string_view TakePart(std::string_view& text, char separator) noexcept
{
    const std::size_t end = std::min(text.find(separator), text.size());
    const std::string_view part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

std::string_view Trimmed(std::string_view text) noexcept
{
    constexpr std::string_view kBlanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(kBlanks);
    return first == std::string_view::npos
               ? std::string_view()
               : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// Whether a text can stand as an attribute's value and ends there.
bool IsAttributeText(std::string_view text) noexcept
{
    return std::none_of(text.begin(), text.end(), [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte <= ' ' || byte == 0x7F || byte == ';' || byte == ',';
    });
}
} // namespace

const std::u16string* SafeContent::Find(std::u16string_view name) const noexcept
{
    const auto found = std::find_if(pairs.begin(), pairs.end(),
                                    [&](const SafePair& pair) { return pair.name == name; });
    return found == pairs.end() ? nullptr : &found->value;
}

void SafeContent::Set(std::u16string_view name, std::u16string_view value)
{
    const auto found = std::find_if(pairs.begin(), pairs.end(),
                                    [&](const SafePair& pair) { return pair.name == name; });
    if (found != pairs.end())
    {
        found->value = value;
    }
    else
    {
        pairs.push_back({std::u16string(name), std::u16string(value)});
    }
}

std::string EncodeCookieValue(const SafeContent& content)
{
    std::string bytes;
    AppendNumber(bytes, content.revision);
    for (const SafePair& pair : content.pairs)
    {
        AppendText(bytes, pair.name);
        AppendText(bytes, pair.value);
    }
    return Scramble(bytes);
}

std::optional<SafeContent> DecodeCookieValue(std::string_view text)
{
    const std::optional<std::string> clear = Unscramble(text);
    if (!clear)
    {
        return std::nullopt;
    }
    std::string_view bytes = *clear;
    const std::optional<std::uint32_t> revision = TakeNumber(bytes);
    if (!revision)
    {
        return std::nullopt;
    }
    SafeContent content{*revision, {}};
    while (!bytes.empty())
    {
        SafePair& pair = content.pairs.emplace_back();
        if (!TakeText(bytes, pair.name) || !TakeText(bytes, pair.value))
        {
            return std::nullopt;
        }
    }
    return content;
}

SafeContent FindSafeContent(std::string_view cookies)
{
    std::optional<SafeContent> newest;
    while (!cookies.empty())
    {
        std::string_view value = TakePart(cookies, ';');
        const std::string_view name = TakePart(value, '=');
        if (Trimmed(name) != kSafeCookieName)
        {
            continue;
        }
        std::optional<SafeContent> content = DecodeCookieValue(Trimmed(value));
        if (content && (!newest || content->revision > newest->revision))
        {
            newest = std::move(content);
        }
    }
    return newest ? *std::move(newest) : SafeContent();
}

std::optional<std::string> MakeCookieData(const SafeContent& content, std::string_view domain,
                                          std::string_view expires)
{
    if (!IsAttributeText(domain))
    {
        return std::nullopt;
    }
    std::string data(kSafeCookieName);
    data.append("=").append(EncodeCookieValue(content));
    if (!domain.empty())
    {
        data.append(";domain=").append(domain);
    }
    if (!expires.empty())
    {
        data.append(";expires=").append(expires);
    }
    return data.size() <= kMaxCookieBytes ? std::optional(std::move(data)) : std::nullopt;
}
} // namespace velt
