#include "tools/trace/trace_options.h"

#include <charconv>
#include <optional>
#include <system_error>
#include <utility>

namespace velt
{
const char kTraceHelp[] =
    "Shows what VeltHTTPClient12OEM.dll and others trace.\n"
    "\n"
    "usage: velt-trace [FILTER...] [--keep N] [FILE...]\n"
    "       velt-trace [FILTER...] [--console] [--save FILE]\n"
    "       velt-trace --help\n"
    "\n"
    "Opens a window with the records as they arrive. Programs look for a viewer when\n"
    "they load the component, so start this one before them. With files that it has\n"
    "saved it shows these instead, also while another viewer runs.\n"
    "\n"
    "  --console      print the records to standard output instead\n"
    "  --save FILE    record to a file without a window: as CSV when its name ends in\n"
    "                 .csv, else as text; an existing file is replaced\n"
    "  --save-size M  no file becomes larger than M megabytes: the records go on in\n"
    "                 numbered ones, FILE.txt, FILE.2.txt, FILE.3.txt and so on\n"
    "  --save-files N keep the newest N of these files only\n"
    "  --level N      only records up to level N: 1 errors, 3 details, 4 calls\n"
    "  --filter TEXT  only records with this in their text or source, in any case;\n"
    "                 * stands for any characters, ? for one\n"
    "  --include RULE only records that this rule, or another one like it, means\n"
    "  --exclude RULE no records that this rule means\n"
    "  --forget RULE  the same, and the window does not even keep them\n"
    "  --keep N       the window keeps the newest N records: 1 to 1000000, which it\n"
    "                 keeps without this option\n"
    "  --debug-output also what programs write for a debugger, as the source\n"
    "                 \"debugger\"; one program at a time can listen to that\n"
    "  --defaults     forget the window's place, columns, filters and font\n"
    "  --help         this text\n"
    "\n"
    "A rule is a text that records have in theirs, after any of level:N,\n"
    "source:PATTERN and process:PATTERN, such as \"level:3 source:net* connected\".\n"
    "--include, --exclude and --forget may be given several times.\n"
    "\n"
    "Without a window it ends at Ctrl+C.\n"
    "\n"
    "Exit codes: 0 done, 1 nothing was recorded or another viewer is running,\n"
    "2 wrong usage, 3 failed.\n";

namespace
{
constexpr std::int32_t kMostKept = 1'000'000;
constexpr std::int32_t kMostMegabytes = 1'000'000; // and files

std::optional<std::int32_t> NumberFrom(const std::string& text) noexcept
{
    std::int32_t number = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, number);
    return error == std::errc() && end == last ? std::optional(number) : std::nullopt;
}

TraceUsageError Wrong(std::string option, const char* what, const std::string& value)
{
    return {option.append(what).append(value)};
}

/// The rule that an option such as --include gives.
std::optional<TraceRule> RuleFrom(const std::string& option, const std::string& terms)
{
    std::string line = "+";
    return ParseRule(line.append(option, 2).append(" ").append(terms));
}
} // namespace

std::variant<TraceOptions, TraceUsageError> ParseTraceOptions(
    std::span<const std::string> arguments)
{
    TraceOptions options;
    for (std::size_t i = 0; i < arguments.size(); ++i)
    {
        const std::string& name = arguments[i];
        if (name == "--help" || name == "-h" || name == "/?")
        {
            options.help = true;
            continue;
        }
        if (name == "--debug-output")
        {
            options.debugOutput = true;
            continue;
        }
        if (name == "--defaults")
        {
            options.defaults = true;
            continue;
        }
        if (name == "--console")
        {
            options.console = true;
            continue;
        }
        if (!name.empty() && name.front() != '-')
        {
            options.files.push_back(name);
            continue;
        }
        const bool isRule = name == "--include" || name == "--exclude" || name == "--forget";
        if (!isRule && name != "--save" && name != "--level" && name != "--filter" &&
            name != "--keep" && name != "--save-size" && name != "--save-files")
        {
            return TraceUsageError{"unknown argument: " + name};
        }
        if (++i == arguments.size() || arguments[i].empty())
        {
            return TraceUsageError{name + " needs a value"};
        }
        const std::string& value = arguments[i];
        if (isRule)
        {
            std::optional<TraceRule> rule = RuleFrom(name, value);
            if (!rule)
            {
                return Wrong(name, " cannot be read: ", value);
            }
            options.filter.rules.push_back(std::move(*rule));
        }
        else if (name == "--save")
        {
            options.savePath = value;
        }
        else if (name == "--filter")
        {
            options.filter.part = value;
        }
        else if (const std::optional<std::int32_t> number = NumberFrom(value); !number)
        {
            return Wrong(name, " needs a number, not: ", value);
        }
        else if (name == "--level")
        {
            options.filter.highestLevel = *number;
        }
        else if (name == "--save-size" || name == "--save-files")
        {
            if (*number < 1 || *number > kMostMegabytes)
            {
                return Wrong(name, " is from 1 to 1000000, not: ", value);
            }
            if (name == "--save-size")
            {
                options.saveLimits.bytes = static_cast<std::uint64_t>(*number) << 20;
            }
            else
            {
                options.saveLimits.files = *number;
            }
        }
        else if (*number < 1 || *number > kMostKept)
        {
            return TraceUsageError{"--keep is from 1 to 1000000, not: " + value};
        }
        else
        {
            options.keep.records = static_cast<std::size_t>(*number);
        }
    }
    if (!options.files.empty() && (options.console || !options.savePath.empty()))
    {
        return TraceUsageError{"a saved file is shown in the window: " + options.files.front()};
    }
    if (options.saveLimits != RecordFileLimits{} && options.savePath.empty())
    {
        return TraceUsageError{"--save-size and --save-files need --save"};
    }
    if (options.saveLimits.files != 0 && options.saveLimits.bytes == 0)
    {
        return TraceUsageError{"--save-files needs --save-size"};
    }
    if (!options.files.empty() && options.debugOutput)
    {
        return TraceUsageError{"--debug-output is not for saved files"};
    }
    return options;
}
} // namespace velt
