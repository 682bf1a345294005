#pragma once

#include "tools/trace/trace_filter.h"
#include "tools/trace/trace_store.h"

#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace velt
{
/// How large a recording may become.
struct RecordFileLimits
{
    std::uint64_t bytes = 0; // of one file; 0 for no limit
    int files = 0;           // how many are kept; 0 for all

    bool operator==(const RecordFileLimits&) const = default;
};

/// What the viewer's command line asks for.
struct TraceOptions
{
    bool help = false;
    bool console = false;
    bool debugOutput = false; // listen to that, too
    bool defaults = false;    // forget what was remembered
    std::string savePath;     // empty: no file
    RecordFileLimits saveLimits;
    std::vector<std::string> files; // saved ones to be opened
    TraceFilter filter;
    TraceStoreLimits keep;

    bool operator==(const TraceOptions&) const = default;
};

/// A command line that cannot be followed, and what is wrong with it.
struct TraceUsageError
{
    std::string message;
};

/// The text of --help.
extern const char kTraceHelp[];

/// Reads the arguments that follow the program's name, in UTF-8.
std::variant<TraceOptions, TraceUsageError> ParseTraceOptions(
    std::span<const std::string> arguments);
} // namespace velt
