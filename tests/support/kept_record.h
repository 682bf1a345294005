#pragma once

#include "tools/trace/trace_file_reader.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velt::test
{
/// A record as it was read from a saved trace, with texts of its own.
struct KeptRecord
{
    std::int64_t arrivalUs;
    std::int32_t level;
    bool malformed;
    std::string process;
    std::string source;
    std::string text;

    bool operator==(const KeptRecord&) const = default;
};

/// For a reader: adds each record to a list that outlives it.
inline TraceFileReader::Keep KeepIn(std::vector<KeptRecord>& records)
{
    return [&records](const TraceEntry& entry, std::string_view process) {
        records.push_back({entry.arrivalUs, entry.level, entry.fault != TraceRecordFault::none,
                           std::string(process), std::string(entry.source),
                           std::string(entry.text)});
    };
}
} // namespace velt::test
