#pragma once

#include <string>
#include <string_view>

namespace velt
{
/// The URL of an HTTP file: "http://", the server and the object, divided by a slash unless the
/// object starts with one of either kind. By design, the scheme is always "http://".
std::wstring FileUrl(std::wstring_view server, std::wstring_view object);
} // namespace velt
