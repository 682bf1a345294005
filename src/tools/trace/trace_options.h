#pragma once

#include "tools/trace/trace_filter.h"
#include "tools/trace/trace_store.h"

#include <span>
#include <string>
#include <variant>
#include <vector>

namespace velt
{
/// What the viewer's command line asks for.
struct TraceOptions
{
    bool help = false;
    bool console = false;
    bool debugOutput = false;       // listen to that, too
    bool defaults = false;          // forget what was remembered
    std::string savePath;           // empty: no file
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
