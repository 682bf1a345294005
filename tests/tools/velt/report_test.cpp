#include "tools/velt/report.h"

#include <catch.hpp>

#include <string>

using namespace velt::tool;

namespace
{
std::string JsonOf(std::string_view text)
{
    Report report;
    report.Add("t", text);
    return report.Json();
}
} // namespace

TEST_CASE("Report: without fields an empty object and no text", "[tools]")
{
    CHECK(Report().Json() == "{}");
    CHECK(Report().Text().empty());
}

TEST_CASE("Report: each kind of value in both forms", "[tools]")
{
    Report part;
    part.Add("url", "u");
    part.AddNothing("file");
    Report report;
    report.Add("yes", true);
    report.Add("no", false);
    report.Add("number", std::int64_t{-9007199254740993});
    report.Add("text", "a b");
    report.AddNothing("nothing");
    report.Add("texts", ReportValue{ReportValue::Texts{"x", "y"}});
    report.Add("parts", ReportValue{ReportValue::Parts{part, Report()}});
    CHECK(report.Json() ==
          R"({"yes":true,"no":false,"number":-9007199254740993,"text":"a b",)"
          R"("nothing":null,"texts":["x","y"],"parts":[{"url":"u","file":null},{}]})");
    CHECK(report.Text() == "yes: yes\nno: no\nnumber: -9007199254740993\ntext: a b\n"
                           "nothing: none\ntexts:\n  x\n  y\nparts:\n  url: u\n  file: none\n"
                           "parts:\n");
}

TEST_CASE("Report: JSON strings are ASCII and escaped", "[tools]")
{
    CHECK(JsonOf("q\" b\\ /") == R"({"t":"q\" b\\ /"})");
    CHECK(JsonOf("\n\t\r") == "{\"t\":\"\\n\\u0009\\u000D\"}");
    CHECK(JsonOf(std::string_view("\0\x1F\x7F", 3)) == "{\"t\":\"\\u0000\\u001F\\u007F\"}");
    CHECK(JsonOf("\xC3\xA4") == R"({"t":"\u00E4"})");
    CHECK(JsonOf("\xF0\x9F\x98\x80") == R"({"t":"\uD83D\uDE00"})");
    CHECK(JsonOf("\xFF") == R"({"t":"\uFFFD"})");
}

TEST_CASE("Report: a text stays in its line", "[tools]")
{
    Report report;
    report.Add("t", "one\r\ntwo\x1B[2J");
    CHECK(report.Text() == "t: one  two [2J\n");
}
