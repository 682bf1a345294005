#include "foundation/endpoints.h"
#include "foundation/wide_text.h"
#include "tests/samples/sample_runs.h"
#include "tests/support/sample_agent_server.h"

#include <wininet.h>

#include <catch.hpp>

#include <algorithm>
#include <string>
#include <vector>

using namespace velt;
using namespace velt::test;
using Lines = std::vector<std::string>;

namespace
{
/// What a script prints; its errors too.
Lines RunScript(const std::wstring& name)
{
    return OutputOf(L"cscript //nologo " + SampleFile(name));
}

void ForgetCookies()
{
    constexpr wchar_t kSite[] = L"http://samples.velt.example/";
    constexpr wchar_t kPast[] = L"; expires = Sat, 01-Jan-2000 00:00:00 GMT";
    ::InternetSetCookieW(kSite, L"visits", kPast);
    ::InternetSetCookieW(kSite, L"velt", kPast);
    const std::wstring scoped = std::wstring(L"; domain=samples.velt.example") + kPast;
    ::InternetSetCookieW(kSite, L"velt", scoped.c_str());
}
} // namespace

TEST_CASE("service scripts: all members work from script", "[service]")
{
    const std::wstring script =
        GENERATE(values<std::wstring>({L"http_service.js", L"http_service.vbs"}));
    CAPTURE(Utf8FromWide(script));
    const RegisteredComponent component;
    const SampleAgentServer agent(kOneUpdate);
    ForgetCookies();
    Lines lines = RunScript(script);
    const auto tag = std::ranges::find_if(
        lines, [](const std::string& line) { return line.starts_with("GetServiceTag: "); });
    REQUIRE(tag != lines.end());
    CHECK(tag->size() > std::string("GetServiceTag: ").size());
    lines.erase(tag); // the machine's own
    CHECK(lines ==
          Lines{"ReadData: visits=3", "ReadData of a site without cookies: (none)",
                "GetDomain: samples.velt.example", "SafeReadData: Ann; visits=4",
                "SafeReadData of a name that was not written: (none)",
                "Redirect: http://" + Utf8FromWide(kRedirectHost) + "/redirect/redirect.aspx?",
                "there is an update agent: yes", "it has an update or a message: yes",
                "IsConnected, before queued work has run: no"});
    const Lines calls = agent.Calls();
    CHECK(std::ranges::count(calls, "GetMessages" + kProduct) == 1); // of the question
    REQUIRE_FALSE(calls.empty());
    CHECK(calls.back() == "StartForegroundUpdate" + kProduct + " 8");
    agent.CloseWindow();
}

TEST_CASE("service scripts: without an update agent there is none", "[service]")
{
    const std::wstring script =
        GENERATE(values<std::wstring>({L"http_service.js", L"http_service.vbs"}));
    CAPTURE(Utf8FromWide(script));
    const RegisteredComponent component;
    ForgetCookies();
    const Lines lines = RunScript(script);
    CHECK(std::ranges::count(lines, "there is an update agent: no") == 1);
    CHECK(std::ranges::count(lines, "it has an update or a message: no") == 1);
    REQUIRE_FALSE(lines.empty());
    CHECK(lines.back() == "IsConnected, before queued work has run: no");
}
