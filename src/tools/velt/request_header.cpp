#include "tools/velt/request_header.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace velt::tool
{
namespace
{
constexpr std::wstring_view kBlanks = L" \t";
constexpr std::wstring_view kOfNames = L"0123456789abcdefghijklmnopqrstuvwxyz"
                                       L"ABCDEFGHIJKLMNOPQRSTUVWXYZ!#$%&'*+-.^_`|~";

bool IsOfValues(wchar_t c) noexcept
{
    return (c >= L' ' && c <= L'~') || c == L'\t';
}

char LowerAscii(char c) noexcept
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string Narrow(std::wstring_view ascii)
{
    std::string text;
    std::transform(ascii.begin(), ascii.end(), std::back_inserter(text),
                   [](wchar_t c) { return static_cast<char>(c); });
    return text;
}
} // namespace

std::optional<RequestHeader> ParseRequestHeader(std::wstring_view text)
{
    const std::size_t colon = std::min(text.find(L':'), text.size());
    const std::wstring_view name = text.substr(0, colon);
    std::wstring_view value = text.substr(std::min(colon + 1, text.size()));
    value.remove_prefix(std::min(value.find_first_not_of(kBlanks), value.size()));
    value = value.substr(0, value.find_last_not_of(kBlanks) + 1); // npos + 1 is none
    if (name.empty() || name.find_first_not_of(kOfNames) != name.npos || value.empty() ||
        !std::all_of(value.begin(), value.end(), &IsOfValues))
    {
        return std::nullopt;
    }
    RequestHeader header{Narrow(name), Narrow(value)};
    if (IsSameHeader(header.name, "Content-Length") ||
        IsSameHeader(header.name, "Transfer-Encoding"))
    {
        return std::nullopt;
    }
    return header;
}

bool IsSameHeader(std::string_view name, std::string_view other) noexcept
{
    return std::equal(name.begin(), name.end(), other.begin(), other.end(),
                      [](char a, char b) { return LowerAscii(a) == LowerAscii(b); });
}
} // namespace velt::tool
