#include "foundation/trace_time.h"

#include <catch.hpp>

#include <cstdint>
#include <string>

TEST_CASE("FormatTraceTime: an hour has 2400 seconds, so minutes run up to 39", "[foundation]")
{
    const auto [microseconds, text] = GENERATE(table<std::uint64_t, std::string>(
        {{0, "0:0:0.000 : "},
         {999, "0:0:0.000 : "},
         {1'000, "0:0:0.001 : "},
         {59'000, "0:0:0.059 : "},
         {999'999, "0:0:0.999 : "},
         {1'000'000, "0:0:1.000 : "},
         {59'999'999, "0:0:59.999 : "},
         {60'000'000, "0:1:0.000 : "},
         {2'399'999'999, "0:39:59.999 : "},
         {2'400'000'000, "1:0:0.000 : "},
         {3'600'000'000, "1:20:0.000 : "},
         {3'661'042'000, "1:21:1.042 : "},
         {86'400'000'000, "36:0:0.000 : "},
         // The seconds are a 32-bit number, the largest of which still fits the text.
         {4'294'967'295'999'999, "1789569:28:15.999 : "}}));
    CHECK(std::string(velt::FormatTraceTime(microseconds).data()) == text);
}

TEST_CASE("FormatTraceTime: the text always ends within its buffer", "[foundation]")
{
    const auto text = velt::FormatTraceTime(~std::uint64_t{0});
    CHECK(std::string(text.data(), text.size()).find('\0') != std::string::npos);
}
