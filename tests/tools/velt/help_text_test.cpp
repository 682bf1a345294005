#include "tools/velt/help_text.h"

#include "tools/velt/command_table.h"

#include <catch.hpp>

#include <sstream>
#include <string>

using namespace velt::tool;

TEST_CASE("HelpText: the program's lists every command and the exit codes", "[tools]")
{
    const std::string text = HelpText("");
    for (const CommandRow& row : Commands())
    {
        CHECK(text.find("\n  " + std::string(row.name)) != text.npos);
        CHECK(text.find(row.summary) != text.npos);
    }
    CHECK(text.find("  3  failed\n") != text.npos);
    CHECK(HelpText("nonsense") == text);
}

TEST_CASE("HelpText: a command's says everything that the table has", "[tools]")
{
    for (const CommandRow& row : Commands())
    {
        const std::string text = HelpText(row.name);
        CHECK(text.starts_with("usage: velt " + std::string(row.name)));
        CHECK(text.find(row.operands) != text.npos);
        CHECK(text.find(row.summary) != text.npos);
        CHECK(text.find(row.details) != text.npos);
        for (const OptionRow& option : row.options)
        {
            const std::string name = "\n  --" + std::string(option.name) +
                                     (option.value.empty() ? "" : " ") + std::string(option.value);
            CHECK(text.find(name) != text.npos);
            CHECK(text.find(option.help) != text.npos);
        }
        CHECK(text.find("\n  --json ") != text.npos);
        CHECK_FALSE(row.examples.empty());
        for (const std::string_view example : row.examples)
        {
            CHECK(example.starts_with("velt " + std::string(row.name)));
            CHECK(text.find("\n  " + std::string(example) + "\n") != text.npos);
        }
    }
}

TEST_CASE("HelpText: fits a terminal of 80 columns", "[tools]")
{
    std::string all = HelpText("");
    for (const CommandRow& row : Commands())
    {
        all += HelpText(row.name);
    }
    std::istringstream lines(all);
    for (std::string line; std::getline(lines, line);)
    {
        INFO(line);
        CHECK(line.size() < 80);
        CHECK((line.empty() || line.back() != ' '));
    }
}

TEST_CASE("HelpText: a first word's lists its commands only", "[tools]")
{
    const std::string text = HelpText("cookie");
    CHECK(text.find("  cookie get URL ") != text.npos);
    CHECK(text.find("  cookie set URL NAME VALUE ") != text.npos);
    CHECK(text.find("fetch") == text.npos);
    CHECK(HelpText("cook") == HelpText(""));
}
