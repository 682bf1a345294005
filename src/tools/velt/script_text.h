#pragma once

#include <string>
#include <string_view>

namespace velt::tool
{
/// A script file's text: UTF-16 after its byte order mark, else UTF-8 with or without one. What is
/// not well-formed becomes U+FFFD; an odd last byte of UTF-16 is left out. Throws std::bad_alloc
/// only.
std::u16string DecodeScript(std::string_view bytes);
} // namespace velt::tool
