#include "tools/trace/trace_filter.h"

#include <catch.hpp>

using velt::ContainsIgnoringCase;
using velt::TraceEntry;
using velt::TraceFilter;
using velt::TraceRecordFault;

TEST_CASE("ContainsIgnoringCase: ASCII letters match in both cases, others as they are", "[tools]")
{
    CHECK(ContainsIgnoringCase("CName::Add - enter", "add"));
    CHECK(ContainsIgnoringCase("cname::add", "NAME::A"));
    CHECK(ContainsIgnoringCase("anything", ""));
    CHECK(ContainsIgnoringCase("", ""));
    CHECK(ContainsIgnoringCase("gr\xC3\xBC\xC3\x9F", "GR\xC3\xBC"));
    CHECK_FALSE(ContainsIgnoringCase("add", "adds"));
    CHECK_FALSE(ContainsIgnoringCase("", "a"));
    CHECK_FALSE(ContainsIgnoringCase("\xC3\xA4", "\xC3\x84")); // a umlaut, small and capital
    CHECK_FALSE(ContainsIgnoringCase("[", "{"));               // not letters
    CHECK_FALSE(ContainsIgnoringCase("@", "`"));
}

TEST_CASE("TraceFilter: level and part must both fit", "[tools]")
{
    TraceEntry entry;
    entry.level = 3;
    entry.source = "Module";
    entry.text = "some text";
    CHECK(TraceFilter{"", 3}.Accepts(entry));
    CHECK(TraceFilter{"", 4}.Accepts(entry));
    CHECK_FALSE(TraceFilter{"", 2}.Accepts(entry));
    CHECK(TraceFilter{"TEXT", 3}.Accepts(entry));
    CHECK(TraceFilter{"module", 3}.Accepts(entry));
    CHECK_FALSE(TraceFilter{"TEXT", 2}.Accepts(entry));
    CHECK_FALSE(TraceFilter{"other", 3}.Accepts(entry));
}

TEST_CASE("TraceFilter: malformed records are shown on every level", "[tools]")
{
    TraceEntry entry;
    entry.fault = TraceRecordFault::wrongMagic;
    entry.level = 100;
    entry.text = "malformed record";
    CHECK(TraceFilter{"", 1}.Accepts(entry));
    CHECK(TraceFilter{"malformed", 1}.Accepts(entry));
    CHECK_FALSE(TraceFilter{"other", 1}.Accepts(entry));
}

TEST_CASE("TraceFilter: only one that asks for nothing accepts all", "[tools]")
{
    CHECK(TraceFilter{}.AcceptsAll());
    CHECK_FALSE(TraceFilter{"x"}.AcceptsAll());
    CHECK_FALSE(TraceFilter{"", 4}.AcceptsAll());
}
