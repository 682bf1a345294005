#include "tools/velt/progress_line.h"

#include <catch.hpp>

using namespace velt::tool;

TEST_CASE("FormatElapsed: minutes and seconds, hours when there are any", "[tools]")
{
    CHECK(FormatElapsed(0) == "0:00");
    CHECK(FormatElapsed(999) == "0:00");
    CHECK(FormatElapsed(61'000) == "1:01");
    CHECK(FormatElapsed(3'599'999) == "59:59");
    CHECK(FormatElapsed(3'600'000) == "1:00:00");
    CHECK(FormatElapsed(360'061'000) == "100:01:01");
    CHECK(FormatElapsed(~std::uint64_t{0}) == "5124095576030:25:51");
}

TEST_CASE("FormatBytes: up to four digits before the point", "[tools]")
{
    CHECK(FormatBytes(0) == "0 B");
    CHECK(FormatBytes(9'999) == "9999 B");
    CHECK(FormatBytes(10'000) == "9.7 KiB");
    CHECK(FormatBytes(std::uint64_t{10'000} * 1024 - 1) == "9999.9 KiB");
    CHECK(FormatBytes(std::uint64_t{10'000} * 1024) == "9.7 MiB");
    CHECK(FormatBytes(std::uint64_t{64} << 20) == "64.0 MiB");
    CHECK(FormatBytes(~std::uint64_t{0}) == "15.9 EiB");
}

TEST_CASE("FormatProgressLine: phase, time, bytes and name, cut to the width", "[tools]")
{
    const FetchProgress progress{1, 3, "receiving", 62'000, 20'971'520, "http://host/page"};
    const std::string whole = "[1/3] 1:02  20.0 MiB  receiving  http://host/page";
    CHECK(FormatProgressLine(progress, 80) == whole);
    CHECK(FormatProgressLine(progress, whole.size()) == whole);
    CHECK(FormatProgressLine(progress, 21) == "[1/3] 1:02  20.0 MiB");
    CHECK(FormatProgressLine(progress, 0).empty());
}

TEST_CASE("FormatProgressLine: is one line of whole characters", "[tools]")
{
    const std::string start = "[0/1] 0:00  0 B  x  ";
    CHECK(FormatProgressLine({0, 1, "x", 0, 0,
                              "a\r\n\x1B"
                              "b"},
                             80) == start + "a   b");
    // U+1F600 has two units, of which only one would fit.
    const FetchProgress wide{0, 1, "x", 0, 0, "\xF0\x9F\x98\x80"};
    CHECK(FormatProgressLine(wide, start.size() + 2) == start + "\xF0\x9F\x98\x80");
    CHECK(FormatProgressLine(wide, start.size() + 1) == "[0/1] 0:00  0 B  x");
}
