#pragma once

#include "tools/trace/record_list.h"
#include "tools/trace/trace_session.h"

#include <string>

namespace velt
{
/// What there is to say about the selection: the time to the line that one record belongs to, the
/// time between two records, or how many they are. Empty when there is nothing. Throws
/// std::bad_alloc.
std::string SelectionText(const TraceSession& session, const RecordList& list);

/// The whole of the record that has the focus, with what is said about the selection below; empty
/// without one. Throws std::bad_alloc.
std::string DetailsText(const TraceSession& session, const RecordList& list,
                        const std::string& selection);

/// The selected records as lines of text, oldest first. Throws std::bad_alloc.
std::string SelectedLines(const TraceSession& session, const RecordList& list);
} // namespace velt
