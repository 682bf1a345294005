#include "internet/connection_properties.h"

#include "tests/internet/user_settings.h"
#include "tests/support/registry_snapshot.h"

#include <catch.hpp>

#include <map>
#include <string>
#include <type_traits>

using velt::kInternetSettingsKey;
using velt::test::DeniedKey;
using velt::test::UserSettings;

namespace
{
using Headers = std::map<std::string, std::string>;

const Headers kOwnAgent{{"User-Agent", "Velt Connection Manager\r\n"}};
} // namespace

TEST_CASE("CConnectionProperties: starts with its defaults", "[internet]")
{
    const UserSettings settings;
    const CConnectionProperties properties;
    CHECK(properties.context == 1);
    CHECK(properties.httpVersion == "HTTP/1.1");
    CHECK(properties.headers == kOwnAgent);
    CHECK(properties.verb == "GET");
    for (const std::string* const text :
         {&properties.proxy, &properties.server, &properties.object, &properties.acceptType,
          &properties.userName, &properties.password})
    {
        CHECK(text->empty());
    }
    CHECK(std::has_virtual_destructor_v<CConnectionProperties>);
}

TEST_CASE("CConnectionProperties: the agent of the user's settings replaces its own", "[internet]")
{
    const std::wstring agent = GENERATE(values<std::wstring>({L"Velt test/1.0", L"", L"a b\r\n"}));
    UserSettings settings;
    settings.SetText(kInternetSettingsKey, L"User-Agent", agent);
    CHECK(CConnectionProperties().headers ==
          Headers{{"User-Agent", std::string(agent.begin(), agent.end())}}); // as it stands
}

TEST_CASE("CConnectionProperties: the value's name has a hyphen", "[internet]")
{
    UserSettings settings;
    settings.SetText(kInternetSettingsKey, L"UserAgent", L"other");
    settings.SetText(kInternetSettingsKey, L"User Agent", L"other");
    CHECK(CConnectionProperties().headers == kOwnAgent);
    settings.SetText(kInternetSettingsKey, L"User-Agent", L"right");
    CHECK(CConnectionProperties().headers == Headers{{"User-Agent", "right"}});
}

TEST_CASE("CConnectionProperties: an agent of up to 2048 characters with its NUL counts",
          "[internet]")
{
    UserSettings settings;
    settings.SetText(kInternetSettingsKey, L"User-Agent", std::wstring(2047, L'a'));
    CHECK(CConnectionProperties().headers == Headers{{"User-Agent", std::string(2047, 'a')}});
    settings.SetText(kInternetSettingsKey, L"User-Agent", std::wstring(2048, L'a'));
    CHECK(CConnectionProperties().headers == kOwnAgent);
}

TEST_CASE("CConnectionProperties: an agent that cannot be read leaves its own", "[internet]")
{
    UserSettings settings;
    SECTION("of another type")
    {
        settings.SetNumber(kInternetSettingsKey, L"User-Agent", 1);
        CHECK(CConnectionProperties().headers == kOwnAgent);
    }
    SECTION("in a key that may not be written")
    {
        settings.SetText(kInternetSettingsKey, L"User-Agent", L"other");
        const DeniedKey denied(HKEY_CURRENT_USER, kInternetSettingsKey);
        CHECK(CConnectionProperties().headers == kOwnAgent);
    }
}

TEST_CASE("CConnectionProperties: a copy is on its own", "[internet]")
{
    const UserSettings settings;
    CConnectionProperties original;
    original.server = "server";
    CConnectionProperties copy(original);
    original.server = "changed";
    original.headers["User-Agent"] = "changed";
    CHECK(copy.server == "server");
    CHECK(copy.headers == kOwnAgent);
    copy = original;
    CHECK(copy.server == "changed");
}
