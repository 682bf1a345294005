#include "tools/velt/command_line.h"

#include <catch.hpp>

#include <sstream>
#include <string>
#include <vector>

using namespace velt::tool;

namespace
{
using Words = std::vector<std::wstring>;

CommandLine Command(const Words& words)
{
    auto parsed = ParseCommandLine(words);
    REQUIRE(std::holds_alternative<CommandLine>(parsed));
    return std::get<CommandLine>(std::move(parsed));
}

UsageError Wrong(const Words& words)
{
    auto parsed = ParseCommandLine(words);
    REQUIRE(std::holds_alternative<UsageError>(parsed));
    return std::get<UsageError>(std::move(parsed));
}

std::string HelpTopic(const Words& words)
{
    auto parsed = ParseCommandLine(words);
    REQUIRE(std::holds_alternative<HelpWanted>(parsed));
    return std::get<HelpWanted>(std::move(parsed)).topic;
}
} // namespace

TEST_CASE("ParseCommandLine: finds commands of one word and of two", "[tools]")
{
    CHECK(Command({L"status"}).command->id == CommandId::status);
    CHECK(Command({L"cookie", L"get", L"http://a/"}).command->id == CommandId::cookieGet);
    CHECK(Command({L"trace", L"on", L"status"}).command->id == CommandId::traceOn);
}

TEST_CASE("ParseCommandLine: every command of the table is found by its name", "[tools]")
{
    for (const CommandRow& row : Commands())
    {
        Words words;
        const std::wstring name(row.name.begin(), row.name.end());
        const std::size_t blank = std::min(name.find(L' '), name.size());
        words.push_back(name.substr(0, blank));
        if (blank < name.size())
        {
            words.push_back(name.substr(blank + 1));
        }
        words.resize(words.size() + row.leastOperands, L"operand");
        CHECK(Command(words).command == &row);
    }
}

TEST_CASE("ParseCommandLine: options and operands may be mixed", "[tools]")
{
    const CommandLine line =
        Command({L"fetch", L"a", L"--verb", L"PUT", L"b", L"--output=c=d", L"--json", L"e"});
    CHECK(line.operands == Words{L"a", L"b", L"e"});
    CHECK(line.Value("verb") == L"PUT");
    CHECK(line.Value("output") == L"c=d");
    CHECK(line.Value("proxy", L"none") == L"none");
    CHECK(line.Has("verb"));
    CHECK_FALSE(line.Has("proxy"));
    CHECK(line.json);
}

TEST_CASE("ParseCommandLine: --json may stand before the command", "[tools]")
{
    CHECK(Command({L"--json", L"status"}).json);
    CHECK_FALSE(Command({L"status"}).json);
}

TEST_CASE("ParseCommandLine: after -- everything is an operand", "[tools]")
{
    const CommandLine line = Command({L"collection", L"--", L"--json", L"--", L"--help"});
    CHECK(line.operands == Words{L"--json", L"--", L"--help"});
    CHECK_FALSE(line.json);
}

TEST_CASE("ParseCommandLine: a single hyphen and negative numbers are operands", "[tools]")
{
    CHECK(Command({L"collection", L"-", L"-5", L""}).operands == Words{L"-", L"-5", L""});
}

TEST_CASE("ParseCommandLine: of several equal options the last one counts, or all", "[tools]")
{
    const CommandLine line = Command({L"fetch", L"u", L"--verb", L"A", L"--verb=B"});
    CHECK(line.Value("verb") == L"B");
    CHECK(line.Values("verb") == Words{L"A", L"B"});
    CHECK(line.Values("accept").empty());
    CHECK(Command({L"unregister", L"--user", L"--user"}).Values("user") == Words{L"", L""});
}

TEST_CASE("Commands: each takes the operands that help shows", "[tools]")
{
    for (const CommandRow& row : Commands())
    {
        CAPTURE(row.name, row.operands);
        std::istringstream words{std::string(row.operands)};
        bool isOptional = false;
        bool isRepeated = false;
        std::size_t least = 0;
        std::size_t most = 0;
        for (std::string word; words >> word;)
        {
            isOptional = isOptional || word.starts_with('[');
            isRepeated = isRepeated || word.find("...") != word.npos;
            least += isOptional ? 0 : 1;
            ++most;
            isOptional = isOptional && !word.ends_with(']');
        }
        CHECK(row.leastOperands == least);
        CHECK(row.mostOperands == (isRepeated ? kAnyNumber : most));
    }
}

TEST_CASE("ParseCommandLine: the rest after a script or trace on is its own", "[tools]")
{
    const CommandLine script =
        Command({L"script", L"--engine", L"JScript", L"f", L"--engine", L"x"});
    CHECK(script.Value("engine") == L"JScript");
    CHECK(script.operands == Words{L"f", L"--engine", L"x"});
    CHECK(Command({L"trace", L"on", L"fetch", L"--help"}).operands == Words{L"fetch", L"--help"});
}

TEST_CASE("ParseCommandLine: help is asked for in several ways", "[tools]")
{
    CHECK(HelpTopic({L"--help"}).empty());
    CHECK(HelpTopic({L"-h"}).empty());
    CHECK(HelpTopic({L"help"}).empty());
    CHECK(HelpTopic({L"help", L"fetch"}) == "fetch");
    CHECK(HelpTopic({L"help", L"safe", L"get"}) == "safe get");
    CHECK(HelpTopic({L"help", L"cookie"}) == "cookie");
    CHECK(HelpTopic({L"help", L"trace"}) == "trace");
    CHECK(HelpTopic({L"help", L"cookie", L"--help"}) == "cookie");
    CHECK(HelpTopic({L"fetch", L"--help"}) == "fetch");
    CHECK(HelpTopic({L"fetch", L"u", L"--verb", L"x", L"-h"}) == "fetch");
    CHECK(HelpTopic({L"cookie", L"--help"}) == "cookie");
    CHECK(HelpTopic({L"trace", L"on", L"--help"}) == "trace on");
    CHECK(std::holds_alternative<VersionWanted>(ParseCommandLine(Words{L"--version"})));
}

TEST_CASE("ParseCommandLine: says what is wrong and where help is", "[tools]")
{
    struct Row
    {
        Words words;
        const wchar_t* message;
        const char* topic;
    };
    const Row row = GENERATE(values<Row>({
        {{}, L"a command is missing", ""},
        {{L"--json"}, L"a command is missing", ""},
        {{L"nonsense"}, L"no such command: nonsense", ""},
        {{L"STATUS"}, L"no such command: STATUS; did you mean status?", ""},
        {{L"ftech"}, L"no such command: ftech; did you mean fetch?", ""},
        {{L"--verison"}, L"no such command: --verison; did you mean --version?", ""},
        {{L"cookie", L"gte"}, L"no such command: cookie gte; did you mean cookie get?", "cookie"},
        {{L"help", L"colection"}, L"no such command: colection; did you mean collection?", ""},
        {{L"fetch", L"u", L"--ouput", L"x"},
         L"no such option: --ouput; did you mean --output?",
         "fetch"},
        {{L"cookie", L"--json"}, L"more is needed after cookie", "cookie"},
        {{L"--nonsense"}, L"no such command: --nonsense", ""},
        {{L"cookie"}, L"more is needed after cookie", "cookie"},
        {{L"cookie", L"eat"}, L"no such command: cookie eat", "cookie"},
        {{L"status", L"x"}, L"too much: x", "status"},
        {{L"status", L"--nope"}, L"no such option: --nope", "status"},
        {{L"status", L"--json=1"}, L"--json takes no value", "status"},
        {{L"fetch"}, L"more is needed: URL...", "fetch"},
        {{L"fetch", L"u", L"--verb"}, L"--verb needs a value: VERB", "fetch"},
        {{L"unregister", L"--user=1"}, L"--user takes no value", "unregister"},
        {{L"fetch", L"--=x", L"u"}, L"no such option: --", "fetch"},
        {{L"help", L"nonsense"}, L"no such command: nonsense", ""},
        {{L"help", L"cookie", L"eat"}, L"no such command: cookie eat", "cookie"},
    }));
    const UsageError error = Wrong(row.words);
    CHECK(error.message == row.message);
    CHECK(error.topic == row.topic);
}

TEST_CASE("ParseCommandLine: --json counts also where the rest is not understood", "[tools]")
{
    CHECK(Wrong({L"nonsense", L"--json"}).json);
    CHECK(Wrong({L"--json", L"nonsense"}).json);
    CHECK(Wrong({L"fetch", L"u", L"--nope", L"--json"}).json);
    CHECK(Wrong({L"cookie", L"--json"}).json);
    CHECK(Wrong({L"status", L"x", L"--json"}).json);
    CHECK_FALSE(Wrong({L"status", L"x"}).json);
    CHECK_FALSE(Wrong({L"nonsense", L"--", L"--json"}).json);
    CHECK(std::get<HelpWanted>(ParseCommandLine(Words{L"help", L"--json"})).json);
    CHECK(std::get<HelpWanted>(ParseCommandLine(Words{L"fetch", L"-h", L"--json"})).json);
    CHECK(std::get<VersionWanted>(ParseCommandLine(Words{L"--version", L"--json"})).json);
}

TEST_CASE("ParseNumber: decimal digits of the range only", "[tools]")
{
    CHECK(ParseNumber(L"1", 1, 10) == 1U);
    CHECK(ParseNumber(L"0010", 1, 10) == 10U);
    CHECK(ParseNumber(L"4294967295", 0, 0xFFFFFFFF) == 0xFFFFFFFFU);
    for (const wchar_t* const text : {L"", L"0", L"11", L"4294967296", L"99999999999999999999",
                                      L"-1", L"+1", L" 1", L"1x", L"0x1"})
    {
        CHECK_FALSE(ParseNumber(text, 1, 10).has_value());
    }
}

TEST_CASE("IsGuidText: digits and braces in their places only", "[tools]")
{
    CHECK(IsGuidText(L"{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}"));
    CHECK(IsGuidText(L"{ac0ee5b0-a8fb-4d0a-af03-2edc518f841b}"));
    CHECK_FALSE(IsGuidText(L""));
    CHECK_FALSE(IsGuidText(L"AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B"));
    CHECK_FALSE(IsGuidText(L"{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841G}"));
    CHECK_FALSE(IsGuidText(L"{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B} "));
    CHECK_FALSE(IsGuidText(L"{AC0EE5B00A8FB-4D0A-AF03-2EDC518F841B}"));
}
