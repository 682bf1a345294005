#include "tools/trace/trace_options.h"

#include <catch.hpp>

#include <string>
#include <vector>

using velt::ParseTraceOptions;
using velt::TraceOptions;
using velt::TraceUsageError;

namespace
{
TraceOptions Parsed(const std::vector<std::string>& arguments)
{
    return std::get<TraceOptions>(ParseTraceOptions(arguments));
}
} // namespace

TEST_CASE("ParseTraceOptions: without arguments a window that shows all", "[tools]")
{
    CHECK(Parsed({}) == TraceOptions{});
}

TEST_CASE("ParseTraceOptions: each option, together and in any order", "[tools]")
{
    CHECK(Parsed({"--help"}).help);
    CHECK(Parsed({"-h"}).help);
    CHECK(Parsed({"/?"}).help);
    const TraceOptions options =
        Parsed({"--filter", "--level", "--save", "C:\\a b.csv", "--console", "--level", "-1"});
    CHECK_FALSE(options.help);
    CHECK(options.console);
    CHECK(options.savePath == "C:\\a b.csv");
    CHECK(options.filter.part == "--level"); // a value may look like an option
    CHECK(options.filter.highestLevel == -1);
    CHECK(options.keep == velt::TraceStoreLimits{});
    CHECK(Parsed({"a.txt", "--level", "1", "b.csv"}).files ==
          std::vector<std::string>{"a.txt", "b.csv"});
    CHECK(Parsed({"--defaults"}).defaults);
    CHECK(Parsed({"--save", "a", "--save-size", "1000000", "--save-files", "3"}).saveLimits ==
          velt::RecordFileLimits{std::uint64_t{1'000'000} << 20, 3});
    CHECK(Parsed({"--debug-output"}).debugOutput);
    const velt::TraceFilter rules =
        Parsed({"--include", "level:3 a", "--exclude", "b", "--forget", "c"}).filter;
    REQUIRE(rules.rules.size() == 3);
    CHECK(velt::FormatRule(rules.rules[0]) == "+include level:3 a");
    CHECK(velt::FormatRule(rules.rules[1]) == "+exclude b");
    CHECK(velt::FormatRule(rules.rules[2]) == "+forget c");
    CHECK(Parsed({"--keep", "1"}).keep.records == 1);
    CHECK(Parsed({"--keep", "1000000"}) == TraceOptions{});
}

TEST_CASE("ParseTraceOptions: what cannot be followed is named", "[tools]")
{
    const auto [arguments, message] = GENERATE(table<std::vector<std::string>, std::string>({
        {{"--nothing"}, "unknown argument: --nothing"},
        {{"-file.txt"}, "unknown argument: -file.txt"},
        {{"file.txt", "--console"}, "a saved file is shown in the window: file.txt"},
        {{"--save", "a.txt", "b.txt"}, "a saved file is shown in the window: b.txt"},
        {{""}, "unknown argument: "},
        {{"--console", "--save"}, "--save needs a value"},
        {{"--save", ""}, "--save needs a value"},
        {{"--filter"}, "--filter needs a value"},
        {{"--level", "four"}, "--level needs a number, not: four"},
        {{"--level", "4x"}, "--level needs a number, not: 4x"},
        {{"--level", "99999999999"}, "--level needs a number, not: 99999999999"},
        {{"--keep", "many"}, "--keep needs a number, not: many"},
        {{"--keep", "0"}, "--keep is from 1 to 1000000, not: 0"},
        {{"--keep", "1000001"}, "--keep is from 1 to 1000000, not: 1000001"},
        {{"--include", "level:x"}, "--include cannot be read: level:x"},
        {{"--exclude"}, "--exclude needs a value"},
        {{"--save", "a", "--save-size", "0"}, "--save-size is from 1 to 1000000, not: 0"},
        {{"--save", "a", "--save-size", "x"}, "--save-size needs a number, not: x"},
        {{"--save-size", "1"}, "--save-size and --save-files need --save"},
        {{"--save", "a", "--save-files", "2"}, "--save-files needs --save-size"},
        {{"--debug-output", "a.txt"}, "--debug-output is not for saved files"},
        {{"--Console"}, "unknown argument: --Console"},
    }));
    CHECK(std::get<TraceUsageError>(ParseTraceOptions(arguments)).message == message);
}

TEST_CASE("kTraceHelp: it names every option and exit code", "[tools]")
{
    for (const char* part :
         {"--console", "--save FILE", "--level N", "--filter TEXT", "--keep N", "--help",
          "--include RULE", "--exclude RULE", "--forget RULE", "--save-size M", "--save-files N",
          "--defaults", "--debug-output", "0 done", "1 nothing", "2 wrong usage", "3 failed"})
    {
        CHECK_THAT(std::string(velt::kTraceHelp), Catch::Contains(part));
    }
}
