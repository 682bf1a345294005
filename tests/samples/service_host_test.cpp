#include "foundation/endpoints.h"
#include "foundation/wide_text.h"
#include "tests/samples/sample_runs.h"
#include "tests/support/sample_agent_server.h"

#include <catch.hpp>

#include <algorithm>
#include <cstddef>
#include <regex>
#include <string>
#include <vector>

using namespace velt;
using namespace velt::test;
using Lines = std::vector<std::string>;

namespace
{
constexpr int kPeriodSeconds = 30; // of the queue

/// The seconds in a line about an event; -1 in another one.
int SecondsOf(const std::string& line)
{
    std::smatch match;
    const std::regex event("    event self_upgrade" +
                           std::string(R"( \{[0-9A-F-]+\}, after (\d+) s)"));
    return std::regex_match(line, match, event) ? std::stoi(match[1].str()) : -1;
}
} // namespace

TEST_CASE("service_host: calls, and a queued update one period after one in the foreground",
          "[service]")
{
    const RegisteredComponent component;
    const SampleAgentServer agent(kOneUpdate);
    Lines lines = OutputOf(SampleProgram(L"service_host.exe") + L" wait");
    std::erase_if(lines, [](const std::string& line) {
        return line.starts_with("    GetServiceTag: "); // the machine's own
    });
    std::vector<int> seconds;
    for (std::string& line : lines)
    {
        if (const int after = SecondsOf(line); after >= 0)
        {
            seconds.push_back(after);
            line = "    event";
        }
    }
    const std::string redirect =
        "    Redirect: http://" + Utf8FromWide(kRedirectHost) + "/redirect/redirect.aspx?";
    CHECK(lines == Lines{"early bound:",
                         "    ReadData: visits=3",
                         "    GetDomain: host.velt.example",
                         "    SafeReadData: Ann; visits=4",
                         redirect,
                         "    IsConnected, before queued work has run: no",
                         "late bound:",
                         "    SafeReadData: Ann; visits=4",
                         "    SafeReadData: Bob",
                         "    GetDomain: .velt.example",
                         redirect,
                         "    IsConnected, before queued work has run: no",
                         "updates:",
                         "    there is an update agent: yes",
                         "    an update or a message was found: yes",
                         "    InvokeUpdate, in the foreground",
                         "    event",
                         "    StartUpdateService, queued for the background",
                         "    event",
                         "    IsConnected, after it has run: yes"});
    REQUIRE(seconds.size() == 2);
    CHECK(seconds[1] - seconds[0] >= kPeriodSeconds - 1);
    CHECK(seconds[1] - seconds[0] < 2 * kPeriodSeconds); // not a period later

    const Lines calls = agent.Calls();
    const auto foreground = std::ranges::find(calls, "StartForegroundUpdate" + kProduct + " 8");
    const auto background = std::ranges::find(calls, "StartBackgroundUpdate" + kProduct);
    CHECK(foreground < background);
    CHECK(background != calls.end());
    agent.CloseWindow();
}

TEST_CASE("service_host: with another argument it says what it takes", "[service]")
{
    CHECK(OutputOf(SampleProgram(L"service_host.exe") + L" later") ==
          Lines{"usage: service_host [wait]"});
}
