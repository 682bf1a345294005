#include "tools/trace/call_times.h"

#include <catch.hpp>

#include <string>
#include <vector>

using namespace velt;

namespace
{
struct Line
{
    std::int64_t atUs;
    std::string text;
    std::uint32_t process = 0;
};

std::vector<CallTimes> TimesOf(const std::vector<Line>& lines)
{
    CallTimesCollector collector;
    std::uint64_t sequence = 100;
    for (const Line& line : lines)
    {
        TraceEntry entry;
        entry.level = 4;
        entry.arrivalUs = line.atUs;
        entry.process = line.process;
        entry.text = line.text;
        collector.Add(sequence++, entry);
    }
    return collector.Take();
}
} // namespace

TEST_CASE("CallTimes: total, own and longest by function", "[tools]")
{
    const std::vector<CallTimes> times = TimesOf({
        {0, "A - enter"},
        {10, "  B - enter"},
        {15, "    C - enter"},
        {18, "    C - return"},
        {30, "  B - return = 0"},
        {31, "  B - enter"},
        {41, "  B - return = 0"},
        {100, "A - return = 0"},
        {200, "A - enter"},
        {210, "A - failed"},
    });
    CHECK(times == std::vector<CallTimes>{
                       {"A", 2, 110, 110 - 30, 100, 100},
                       {"B", 2, 30, 27, 20, 101},
                       {"C", 1, 3, 3, 3, 102},
                   });
}

TEST_CASE("CallTimes: a call may take no time, and none less", "[tools]")
{
    CHECK(TimesOf({{7, "A - enter"}, {7, "A - return"}}) ==
          std::vector<CallTimes>{{"A", 1, 0, 0, 0, 100}});
    CHECK(TimesOf({{7, "A - enter"}, {5, "A - return"}}) == // the clock was put back
          std::vector<CallTimes>{{"A", 1, 0, 0, 0, 100}});
}

TEST_CASE("CallTimes: a function that calls itself counts each call", "[tools]")
{
    CHECK(TimesOf(
              {{0, "A - enter"}, {10, "  A - enter"}, {30, "  A - return"}, {40, "A - return"}}) ==
          std::vector<CallTimes>{{"A", 2, 60, 40, 40, 100}});
}

TEST_CASE("CallTimes: lines without their other line, and messages, do not count", "[tools]")
{
    CHECK(TimesOf({{0, "A - return"}, {1, "B - enter"}, {2, "message"}}).empty());
    // What a filter has taken away between them leaves the others right.
    CHECK(TimesOf({{0, "A - enter"}, {1, "  B - enter"}, {9, "A - return"}}) ==
          std::vector<CallTimes>{{"A", 1, 9, 9, 9, 100}});
    CallTimesCollector collector;
    TraceEntry detail;
    detail.level = 3;
    detail.text = "A - enter";
    collector.Add(0, detail);
    CHECK(collector.Take().empty());
}

TEST_CASE("CallTimes: processes that are told apart do not mix", "[tools]")
{
    CHECK(TimesOf({{0, "A - enter", 1},
                   {5, "A - enter", 2},
                   {6, "A - return", 1},
                   {8, "A - return", 2}}) == std::vector<CallTimes>{{"A", 2, 9, 9, 6, 100}});
}

TEST_CASE("CallTimes: many calls without an end take bounded memory and time", "[tools]")
{
    std::vector<Line> lines;
    for (int i = 0; i < 20'000; ++i)
    {
        lines.push_back({i, "F" + std::to_string(i) + " - enter"});
    }
    lines.push_back({30'000, "F19999 - return"});
    const std::vector<CallTimes> times = TimesOf(lines);
    REQUIRE(times.size() == 1);
    CHECK(times[0].totalUs == 10'001);
}

TEST_CASE("CallTimes: sorted by each column, and as CSV", "[tools]")
{
    std::vector<CallTimes> times{
        {"b", 1, 5, 5, 9, 0}, {"a", 3, 5, 1, 8, 0}, {"c,d", 2, 6, 2, 7, 0}};
    const auto order = [&](CallTimesOrder by) {
        Sort(times, by);
        return times[0].name + times[1].name + times[2].name;
    };
    CHECK(order(CallTimesOrder::count) == "ac,db");
    CHECK(order(CallTimesOrder::own) == "bc,da");
    CHECK(order(CallTimesOrder::longest) == "bac,d");
    CHECK(order(CallTimesOrder::name) == "abc,d");
    CHECK(order(CallTimesOrder::total) == "c,dab");
    CHECK(CallTimesCsv(times) == "\xEF\xBB\xBF"
                                 "function,count,total us,own us,longest us\r\n"
                                 "\"c,d\",2,6,2,7\r\na,3,5,1,8\r\nb,1,5,5,9\r\n");
}
