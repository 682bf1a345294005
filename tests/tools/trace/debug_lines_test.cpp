#include "tools/trace/debug_lines.h"

#include <catch.hpp>

#include <string>
#include <vector>

using velt::DebugLines;
using Lines = std::vector<DebugLines::Line>;

TEST_CASE("DebugLines: a line in pieces is one, with the time of the first", "[tools]")
{
    DebugLines lines;
    CHECK(lines.Add(1, 7, "").empty());
    CHECK_FALSE(lines.HasBegun());
    CHECK(lines.Add(2, 7, "module: ").empty());
    CHECK(lines.Add(3, 8, "of another").empty());
    CHECK(lines.Add(4, 7, "A - enter").empty());
    CHECK(lines.Add(5, 7, "\r\n") == Lines{{2, 7, "module: A - enter"}});
    CHECK(lines.HasBegun());
    CHECK(lines.Add(6, 8, " process\n") == Lines{{3, 8, "of another process"}});
    CHECK_FALSE(lines.HasBegun());
}

TEST_CASE("DebugLines: one piece may have several lines, and empty ones are none", "[tools]")
{
    DebugLines lines;
    CHECK(lines.Add(1, 7, "a\r\nb\n\n\rc") == Lines{{1, 7, "a"}, {1, 7, "b"}});
    CHECK(lines.Add(2, 7, "d\n") == Lines{{1, 7, "cd"}});
    CHECK(lines.Add(3, 7, "\r\n").empty());
    CHECK_FALSE(lines.HasBegun());
}

TEST_CASE("DebugLines: what nobody goes on with is a line at the second look", "[tools]")
{
    DebugLines lines;
    lines.Add(1, 7, "no end");
    CHECK(lines.TakeOld().empty());
    lines.Add(2, 7, " yet");
    CHECK(lines.TakeOld().empty());
    CHECK(lines.TakeOld() == Lines{{1, 7, "no end yet"}});
    CHECK_FALSE(lines.HasBegun());
    CHECK(lines.TakeOld().empty());
}

TEST_CASE("DebugLines: a line without an end does not grow for ever", "[tools]")
{
    DebugLines lines;
    std::size_t ended = 0;
    for (int i = 0; i < 100; ++i)
    {
        ended += lines.Add(i, 7, std::string(4000, 'x')).size();
    }
    CHECK(ended > 5);
}

TEST_CASE("DebugLines: the level of an entry or exit line, or of details", "[tools]")
{
    CHECK(DebugLines::LevelOf("  A::B - enter") == 4);
    CHECK(DebugLines::LevelOf("A::B - return = 0") == 4);
    CHECK(DebugLines::LevelOf("A::B - return") == 4);
    CHECK(DebugLines::LevelOf("1:2:3.004 : A - enter") == 4);
    CHECK(DebugLines::LevelOf("a - b") == 3);
    CHECK(DebugLines::LevelOf("  failed: 0x80004005") == 3);
    CHECK(DebugLines::LevelOf("") == 3);
}
