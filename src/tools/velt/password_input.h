#pragma once

#include "tools/common/console.h"

#include <string>

namespace velt::tool
{
/// The first line of a file in UTF-8, or UTF-16 after its byte order mark; "-" is standard input,
/// of which no more than the line is read. On a terminal the line is asked for through `messages`
/// and not shown. Throws CommandFailure, with ERROR_CANCELLED when the terminal gives none.
std::wstring ReadPassword(const std::wstring& file, const std::wstring& userName,
                          const Console& messages);
} // namespace velt::tool
