#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velt::tool
{
/// A header of a request, ASCII.
struct RequestHeader
{
    std::string name;
    std::string value;
};

/// Reads "NAME:VALUE"; blanks and tabs around the value are left out. Nothing for what cannot be
/// sent as one header: a name that HTTP does not allow, a value that is empty or not of printable
/// ASCII characters and tabs, and a header that says where the data of the request ends, because
/// the request says that itself. Throws std::bad_alloc only.
std::optional<RequestHeader> ParseRequestHeader(std::wstring_view text);

/// Whether two names are the same header's.
bool IsSameHeader(std::string_view name, std::string_view other) noexcept;
} // namespace velt::tool
