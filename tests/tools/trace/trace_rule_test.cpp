#include "tools/trace/trace_filter.h"
#include "tools/trace/trace_rule.h"
#include "tools/trace/trace_view.h"

#include <catch.hpp>

#include <string>

using namespace velt;

namespace
{
TraceRule Rule(TraceRuleKind kind, const char* terms)
{
    TraceRule rule;
    rule.kind = kind;
    REQUIRE(ParseRuleTerms(terms, rule));
    return rule;
}

TraceEntry RecordOf(std::int32_t level, std::string_view source, std::string_view text)
{
    TraceEntry entry;
    entry.level = level;
    entry.source = source;
    entry.text = text;
    return entry;
}
} // namespace

TEST_CASE("TraceRule: all that it names must fit", "[tools]")
{
    const TraceEntry entry = RecordOf(3, "network", "connected to a host");
    const auto means = [&](const char* terms) {
        return Rule(TraceRuleKind::include, terms).Means(entry, "host.exe (12)");
    };
    CHECK(means(""));
    CHECK(means("connected"));
    CHECK(means("level:3 connected"));
    CHECK(means("level:3 source:net* process:\"host.exe (12)\" c*host"));
    CHECK_FALSE(means("level:4 connected"));
    CHECK_FALSE(means("source:disk connected"));
    CHECK_FALSE(means("process:other connected"));
    CHECK_FALSE(means("network")); // in the source alone
    TraceEntry malformed = entry;
    malformed.fault = TraceRecordFault::tooShort;
    CHECK_FALSE(Rule(TraceRuleKind::include, "level:3").Means(malformed, ""));
    CHECK(Rule(TraceRuleKind::include, "connected").Means(malformed, ""));
    CHECK(Rule(TraceRuleKind::include, "").MeansAll());
    CHECK_FALSE(Rule(TraceRuleKind::include, "level:0").MeansAll());
}

TEST_CASE("TraceRule: written down and read again it is the same", "[tools]")
{
    const std::string line = GENERATE(
        as<std::string>(), "+include text", "-exclude level:-1 source:a*b", "+forget ",
        "+highlight1 process:\"host.exe (12)\" a \"b\"", "-highlight5 level:4",
        "+include text:level:3", "+include text:text:x", "+exclude  two  blanks ",
        "+include source:\"a \"\"b\"\"\" c", "+include process:\"\"\"a\"", "+include source:a\"b");
    CAPTURE(line);
    const std::optional<TraceRule> rule = ParseRule(line);
    REQUIRE(rule);
    CHECK(FormatRule(*rule) == line);
    CHECK(ParseRule(FormatRule(*rule)) == rule);
}

TEST_CASE("TraceRule: what is none is refused", "[tools]")
{
    const std::string line =
        GENERATE(as<std::string>(), "", "+", "+include", "include text", "+other text",
                 "+highlight text", "+highlight0 text", "+highlight6 text", "+highlight11 text",
                 "+include level:x text", "+include level: text", "+include source:\"a text");
    CAPTURE(line);
    CHECK_FALSE(ParseRule(line));
}

TEST_CASE("TraceFilter: including rules add to each other, excluding ones take away", "[tools]")
{
    TraceFilter filter;
    const TraceEntry add = RecordOf(4, "", "Add");
    const TraceEntry remove = RecordOf(4, "", "Remove");
    const TraceEntry noise = RecordOf(3, "noise", "Add more");
    const auto shown = [&] {
        return std::string(filter.Accepts(add) ? "a" : "") + (filter.Accepts(remove) ? "r" : "") +
               (filter.Accepts(noise) ? "n" : "");
    };
    CHECK(shown() == "arn");
    filter.rules.push_back(Rule(TraceRuleKind::include, "add"));
    CHECK_FALSE(filter.AcceptsAll());
    CHECK(shown() == "an");
    filter.rules.push_back(Rule(TraceRuleKind::include, "remove"));
    CHECK(shown() == "arn");
    filter.rules.push_back(Rule(TraceRuleKind::exclude, "source:noise"));
    CHECK(shown() == "ar");
    filter.rules.push_back(Rule(TraceRuleKind::forget, "remove"));
    CHECK(shown() == "a");
    for (TraceRule& rule : filter.rules)
    {
        rule.on = false;
    }
    CHECK(filter.AcceptsAll());
    CHECK(shown() == "arn");
    filter.rules.push_back(Rule(TraceRuleKind::highlight, "nothing"));
    CHECK(filter.AcceptsAll());
}

TEST_CASE("Rules: which records are forgotten, and which colour they have", "[tools]")
{
    TraceRules rules{Rule(TraceRuleKind::highlight, "blue"),
                     Rule(TraceRuleKind::highlight, "process:host"),
                     Rule(TraceRuleKind::forget, "level:4 noise")};
    rules[0].color = 3;
    rules[1].color = 1;
    CHECK(HighlightOf(rules, RecordOf(3, "", "blue"), "host.exe (1)") == 3);
    CHECK(HighlightOf(rules, RecordOf(3, "", "red"), "host.exe (1)") == 1);
    CHECK_FALSE(HighlightOf(rules, RecordOf(3, "", "red"), "?"));
    rules[0].on = false;
    CHECK(HighlightOf(rules, RecordOf(3, "", "blue"), "host.exe (1)") == 1);
    CHECK(IsForgotten(rules, RecordOf(4, "", "noise"), ""));
    CHECK_FALSE(IsForgotten(rules, RecordOf(3, "", "noise"), ""));
    rules[2].on = false;
    CHECK_FALSE(IsForgotten(rules, RecordOf(4, "", "noise"), ""));
}

TEST_CASE("TraceView: a rule finds records by the names of their processes", "[tools]")
{
    TraceStore store;
    SenderNames names;
    for (const char* name : {"a.exe (1)", "b.exe (2)", "a.exe (1)"})
    {
        TraceEntry entry;
        entry.sender = names.Number(name);
        store.Append(entry);
    }
    TraceView view(store, &names);
    TraceFilter filter;
    filter.rules.push_back(Rule(TraceRuleKind::include, "process:a.exe"));
    view.SetFilter(filter);
    view.Advance(10);
    CHECK(view.Size() == 2);
    CHECK(view.SequenceAt(1) == 2);
    CHECK(names.Name(99) == "?");
    names.Clear();
    CHECK(names.Name(0) == "?");
    CHECK(names.Number("c") == 0);
}
