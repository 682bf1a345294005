#include "internet/url_text.h"

#include <optional>

namespace velt
{
namespace
{
std::optional<unsigned> HexDigit(char c) noexcept
{
    if (c >= '0' && c <= '9')
    {
        return static_cast<unsigned>(c - '0');
    }
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? std::optional(static_cast<unsigned>(lower - 'a' + 10))
                                        : std::nullopt;
}
} // namespace

std::string UnescapeUrl(std::string_view text)
{
    std::string result;
    while (!text.empty())
    {
        const bool escaped = text.size() >= 3 && text[0] == '%';
        const auto high = escaped ? HexDigit(text[1]) : std::nullopt;
        const auto low = escaped ? HexDigit(text[2]) : std::nullopt;
        result.push_back(high && low ? static_cast<char>(*high << 4 | *low) : text[0]);
        text.remove_prefix(high && low ? 3 : 1);
    }
    return result;
}

std::string_view WithoutFragment(std::string_view url) noexcept
{
    return url.substr(0, url.find('#'));
}

UrlCredentials CredentialsOf(std::string_view url)
{
    constexpr std::string_view kBegin = "://";
    const std::size_t begin = url.find(kBegin);
    if (begin == url.npos)
    {
        return {};
    }
    url.remove_prefix(begin + kBegin.size());
    url = url.substr(0, url.find_first_of("/\\?")); // browsers take either slash
    const std::size_t at = url.rfind('@');
    if (at == url.npos)
    {
        return {};
    }
    url = url.substr(0, at);
    const std::size_t colon = url.find(':');
    return {UnescapeUrl(url.substr(0, colon)),
            colon == url.npos ? std::string() : UnescapeUrl(url.substr(colon + 1))};
}
} // namespace velt
