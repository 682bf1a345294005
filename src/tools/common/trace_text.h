#pragma once

#include "foundation/trace_record.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace velt
{
/// What a malformed record shows instead of its text: its fault, its size and its first bytes.
std::string DescribeMalformed(TraceRecordFault fault, std::size_t sizeBytes,
                              std::span<const std::byte> front);

/// The text with its control characters as "\n", "\t" and "\x1B", so that a record stays one line
/// and says nothing to a terminal.
std::string WithoutControls(std::string_view text);
} // namespace velt
