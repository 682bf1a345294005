#include "tools/trace/trace_line.h"

#include <catch.hpp>

#include <string>

using velt::ParseTraceLine;
using velt::TraceLine;
using velt::TraceLineKind;

TEST_CASE("ParseTraceLine: names, kinds and indentation of calls", "[tools]")
{
    struct Row
    {
        std::string text;
        TraceLineKind kind;
        std::size_t indentation;
        std::string name;
    };
    const Row row = GENERATE(values<Row>({
        {"CName::Method - enter", TraceLineKind::entry, 0, "CName::Method"},
        {"    CName::Method - enter", TraceLineKind::entry, 4, "CName::Method"},
        {"  CName::Method - return", TraceLineKind::exit, 2, "CName::Method"},
        {"CName::Method - return = -2147467259", TraceLineKind::exit, 0, "CName::Method"},
        {"CName::Method - a - b", TraceLineKind::exit, 0, "CName::Method"},
        {"CName::Method - ", TraceLineKind::exit, 0, "CName::Method"},
        {"CName::Method - entered", TraceLineKind::exit, 0, "CName::Method"},
        {"17:39:5.003 :   CName::Method - enter", TraceLineKind::entry, 2, "CName::Method"},
        {"17:39:5 : Name - enter", TraceLineKind::entry, 0, "17:39:5 : Name"},
        {" - enter", TraceLineKind::other, 1, ""},
        {"no divider", TraceLineKind::other, 0, ""},
        {"   ", TraceLineKind::other, 3, ""},
        {"", TraceLineKind::other, 0, ""},
    }));
    const TraceLine line = ParseTraceLine(4, row.text);
    CAPTURE(row.text);
    CHECK(line.kind == row.kind);
    CHECK(line.indentation == row.indentation);
    CHECK(line.name == row.name);
}

TEST_CASE("ParseTraceLine: messages of other levels are neither entry nor exit", "[tools]")
{
    const std::int32_t level = GENERATE(-4, 0, 1, 3, 5);
    const TraceLine line = ParseTraceLine(level, "  CName::Method - enter");
    CHECK(line.kind == TraceLineKind::other);
    CHECK(line.name.empty());
    CHECK(line.indentation == 2);
}
