#pragma once

#include <string>
#include <string_view>

namespace velt
{
/// The text of a trace record as UTF-8. Programs send either UTF-8, whose last character may have
/// been cut in two when the record was full, or their code page. Throws std::bad_alloc and
/// SystemException::Win32.
std::string ToUtf8(std::string_view text);
} // namespace velt
