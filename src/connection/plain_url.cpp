#include "connection/plain_url.h"

#include <algorithm>
#include <cstddef>

namespace velt
{
namespace
{
constexpr std::size_t kMostCharacters = 1024; // systems cut longer ones short, sooner or later

bool IsDigit(char c) noexcept
{
    return c >= '0' && c <= '9';
}

bool IsOfHost(char c) noexcept
{
    return (c >= 'a' && c <= 'z') || IsDigit(c) || c == '-' || c == '.';
}

bool IsOfPath(char c) noexcept
{
    return IsOfHost(c) || (c >= 'A' && c <= 'Z') || c == '_' || c == '/';
}

bool IsOfQuery(char c) noexcept
{
    return (IsOfPath(c) && c != '/') || c == '&' || c == '=' || c == '+';
}

bool TakeStart(std::string_view& text, std::string_view start) noexcept
{
    const bool isThere = text.starts_with(start);
    text.remove_prefix(isThere ? start.size() : 0);
    return isThere;
}

/// Takes the characters off that pass.
std::string_view TakeWhile(std::string_view& text, bool (*passes)(char)) noexcept
{
    const auto end = std::find_if_not(text.begin(), text.end(), passes);
    const auto taken = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(taken.size());
    return taken;
}

/// A path, and a query if there is one.
bool IsPlainObject(std::string_view object) noexcept
{
    const std::string_view path = TakeWhile(object, IsOfPath);
    const bool isPlain =
        path.starts_with('/') && path.find("/.") == path.npos && path.find("//") == path.npos;
    if (TakeStart(object, "?"))
    {
        TakeWhile(object, IsOfQuery);
    }
    return isPlain && object.empty();
}

/// The number of a port; 0 for a text that is none.
std::uint16_t PortOf(std::string_view digits) noexcept
{
    std::uint32_t port = 0;
    for (const char digit : digits.substr(0, 6)) // more digits are too many
    {
        port = port * 10 + static_cast<std::uint32_t>(digit - '0');
    }
    return port <= 0xFFFF ? static_cast<std::uint16_t>(port) : 0;
}
} // namespace

std::optional<PlainUrl> CutPlainUrl(std::string_view url) noexcept
{
    if (url.size() > kMostCharacters)
    {
        return std::nullopt;
    }
    PlainUrl parts{};
    parts.isSecure = TakeStart(url, "https://");
    if (!parts.isSecure && !TakeStart(url, "http://"))
    {
        return std::nullopt;
    }
    parts.host = TakeWhile(url, IsOfHost);
    parts.port = parts.isSecure ? 443 : 80;
    if (TakeStart(url, ":"))
    {
        const std::string_view digits = TakeWhile(url, IsDigit);
        parts.port = digits.starts_with('0') ? std::uint16_t{0} : PortOf(digits);
    }
    parts.object = url;
    const bool isPlain = !parts.host.empty() && parts.port != 0 && IsPlainObject(parts.object);
    return isPlain ? std::optional(parts) : std::nullopt;
}
} // namespace velt
