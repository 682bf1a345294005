#include "foundation/endpoints.h"
#include "foundation/wide_text.h"
#include "tests/support/child_process.h"
#include "tests/support/component_library.h"
#include "tests/support/sample_agent_server.h"
#include "tests/support/temp_folder.h"

#include <wininet.h>

#include <catch.hpp>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

using namespace velt;
using namespace velt::test;
using Lines = std::vector<std::string>;

namespace
{
const std::string kProduct = " {AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}";
const std::string kOneUpdate = "[agent]\r\nconnected=1\r\n[updates]\r\n" + kProduct.substr(1) +
                               "=1\r\n[messages]\r\n" + kProduct.substr(1) + "=0\r\n";

/// What a script prints; its errors too.
Lines RunScript(const std::wstring& name)
{
    const TempFolder folder(L"script");
    const std::wstring output = folder.File(L"output.txt");
    RunProcess(L"cmd /c cscript //nologo \"" + std::wstring(VELT_SAMPLES_DIR) + L"\\" + name +
               L"\" > \"" + output + L"\" 2>&1");
    std::ifstream file(output.c_str());
    Lines lines;
    for (std::string line; std::getline(file, line);)
    {
        lines.push_back(line);
    }
    return lines;
}

/// The component, registered; its keys go with the prefix.
class RegisteredComponent
{
public:
    RegisteredComponent()
    {
        REQUIRE(m_library.RegisterServer() == S_OK);
    }

private:
    ComponentLibrary m_library;
};

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
    ::PostMessageW(::FindWindowW(nullptr, L"Software Manager"), WM_CLOSE, 0, 0);
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
