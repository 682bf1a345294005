#pragma once

#include "tools/trace/trace_store.h"

#include <cstdint>
#include <optional>

namespace velt
{
/// The exit line of an entry line, or the entry line of an exit line: the nearest one of the same
/// process, function and indentation that leaves none between them unpaired. Records that do not
/// tell their process count as one process: whose names are shown for them may change from one to
/// the next. None for messages, and when the other line is not among the next `most` records of the
/// store on its side.
///
/// Records do not tell their thread. Where several threads are in the same function at the same
/// depth, their lines are paired like brackets.
std::optional<std::uint64_t> FindPartner(const TraceStore& store, std::uint64_t sequence,
                                         std::uint64_t most = UINT64_MAX);
} // namespace velt
