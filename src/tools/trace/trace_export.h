#pragma once

#include "tools/common/trace_text.h"
#include "tools/trace/trace_store.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace velt
{
/// "2026-11-21 09:05:03.000042" of microseconds since 1601.
std::string FormatArrival(std::int64_t microseconds);

/// A span of time for people: "17 us", "3.250 ms", "2.000017 s".
std::string FormatDuration(std::int64_t microseconds);

/// A number with commas between thousands.
std::string FormatCount(std::uint64_t number);

/// The level as a reader sees it: its number, or "!" for a malformed record.
std::string FormatLevel(const TraceEntry& entry);

/// Appends a record as a line: time, level, process, then "source: " if there is one, and the text.
/// Fields stand two blanks apart; the line ends with CR LF.
void AppendTextLine(std::string& to, const TraceEntry& entry, std::string_view process);

/// Whether a file of this name is to hold CSV: the name ends in ".csv", in any case.
bool EndsInCsv(std::string_view name) noexcept;

/// Whether a field is written with an apostrophe in front: a spreadsheet would take it for a
/// formula, or it has such an apostrophe of its own, which a reader would take away.
bool NeedsGuard(std::string_view field) noexcept;

/// The first line of a CSV file, after the mark that tells spreadsheets that it is UTF-8.
inline constexpr std::string_view kCsvHeading = "\xEF\xBB\xBFtime,process,level,source,text\r\n";

/// Appends a field of a CSV file: in quotation marks if it needs them, those in it doubled. A text
/// that a spreadsheet would take for a formula gets an apostrophe in front.
void AppendCsvField(std::string& to, std::string_view field);

/// Appends a record as a line of a CSV file.
void AppendCsvLine(std::string& to, const TraceEntry& entry, std::string_view process);
} // namespace velt
