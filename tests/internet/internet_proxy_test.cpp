#include "internet/internet_proxy.h"

#include "tests/internet/exchange.h"
#include "tests/internet/user_settings.h"
#include "tests/support/real_servers.h"
#include "tests/support/registry_snapshot.h"

#include <catch.hpp>

#include <algorithm>
#include <string>
#include <type_traits>

using velt::kInternetSettingsKey;
using namespace velt::test;

namespace
{
/// Checks what was found.
void CheckFound(const std::wstring& text, const std::wstring& host, const std::wstring& port,
                const std::wstring& url)
{
    const CInternetProxy proxy;
    CHECK(proxy.GetText() == text);
    CHECK(proxy.GetHost() == host);
    CHECK(proxy.GetPort() == port);
    CHECK(proxy.GetUrl() == url);
    CHECK(proxy.GetSessionProxy() == (port.empty() ? host : host + L":" + port));
}

void CheckNone()
{
    CheckFound(L"", L"", L"", L"http://");
}

void CheckSystemProxy()
{
    CheckFound(L"", L"system", L"1", L"http://system");
}
} // namespace

TEST_CASE("CInternetProxy: without settings there is no proxy", "[internet]")
{
    const UserSettings settings;
    CheckNone();
    CHECK(std::has_virtual_destructor_v<CInternetProxy>);
}

TEST_CASE("CInternetProxy: the legacy value alone decides", "[internet]")
{
    using Row = std::tuple<std::wstring, std::wstring, std::wstring, std::wstring>;
    const auto [text, host, port, url] = GENERATE(values<Row>({
        {L"gateway", L"gateway", L"", L"http://gateway"},
        {L"gateway:8080", L"gateway", L"8080", L"http://gateway"},
        {L":8080", L":8080", L"", L"http://:8080"},
        {L"a:80;b:443", L"a:80;b", L"443", L"http://a:80;b"},
        {L"http=gateway:80", L"http=gateway", L"80", L"http://http=gateway"}, // has no prefixes
        {L"http://gateway:80", L"http://gateway", L"80", L"http://gateway"},
        {L"ftp://relay:21", L"ftp://relay", L"21", L"http://elay"},
        {L"ftp://relay", L"ftp", L"//relay", L"http://ftp"},
    }));
    UserSettings settings;
    settings.SetLegacyProxy(text);
    settings.SetSystemProxy(L"system:1");
    CheckFound(text, host, port, url);
}

TEST_CASE("CInternetProxy: a legacy value that cannot be read leaves it to the system",
          "[internet]")
{
    UserSettings settings;
    settings.SetSystemProxy(L"system:1");
    SECTION("there is none")
    {
        CheckSystemProxy();
    }
    SECTION("empty")
    {
        settings.SetLegacyProxy(L"");
        CheckSystemProxy();
    }
    SECTION("a number")
    {
        settings.SetNumber(UserSettings::kLegacyKey, L"proxy", 1);
        CheckSystemProxy();
    }
    SECTION("another name")
    {
        settings.SetText(UserSettings::kLegacyKey, L"ProxyServer", L"gateway");
        CheckSystemProxy();
    }
    SECTION("too long")
    {
        settings.SetLegacyProxy(std::wstring(260, L'g'));
        CheckSystemProxy();
    }
    SECTION("in a key that may not be written")
    {
        settings.SetLegacyProxy(L"gateway");
        const DeniedKey denied(HKEY_CURRENT_USER, UserSettings::kLegacyKey);
        CheckSystemProxy();
    }
}

TEST_CASE("CInternetProxy: texts of 260 characters with their NUL count", "[internet]")
{
    const std::wstring host(257, L'g');
    UserSettings settings;
    SECTION("of the legacy value")
    {
        settings.SetLegacyProxy(host + L":1");
        CheckFound(host + L":1", host, L"1", L"http://" + host);
    }
    SECTION("of the system's")
    {
        settings.SetSystemProxy(host + L":1");
        CheckFound(L"", host, L"1", L"http://" + host);
        settings.SetSystemProxy(host + L":12");
        CheckNone();
    }
}

TEST_CASE("CInternetProxy: the legacy value's name has no case", "[internet]")
{
    UserSettings settings;
    settings.SetText(UserSettings::kLegacyKey, L"PROXY", L"gateway");
    CheckFound(L"gateway", L"gateway", L"", L"http://gateway");
}

TEST_CASE("CInternetProxy: the system's proxy counts when it is enabled", "[internet]")
{
    const auto [enabled, counts] =
        GENERATE(table<DWORD, bool>({{0, false}, {1, true}, {2, true}, {0xFFFFFFFF, true}}));
    UserSettings settings;
    settings.SetSystemProxy(L"system:1", enabled);
    if (counts)
    {
        CheckSystemProxy();
    }
    else
    {
        CheckNone();
    }
}

TEST_CASE("CInternetProxy: what enables the system's proxy must be a number of four bytes",
          "[internet]")
{
    UserSettings settings;
    settings.SetSystemProxy(L"system:1");
    SECTION("missing")
    {
        ::RegDeleteKeyValueW(HKEY_CURRENT_USER, kInternetSettingsKey, L"ProxyEnable");
    }
    SECTION("a text")
    {
        settings.SetText(kInternetSettingsKey, L"ProxyEnable", L"1");
    }
    SECTION("four bytes of another type")
    {
        settings.Set(kInternetSettingsKey, L"ProxyEnable", REG_BINARY, "\1\0\0\0", 4);
    }
    SECTION("eight bytes")
    {
        settings.Set(kInternetSettingsKey, L"ProxyEnable", REG_QWORD, "\1\0\0\0\0\0\0\0", 8);
    }
    CheckNone();
}

TEST_CASE("CInternetProxy: the system's proxy is divided, after a prefix for a protocol",
          "[internet]")
{
    using Row = std::tuple<std::wstring, std::wstring, std::wstring, std::wstring>;
    const auto [text, host, port, url] = GENERATE(values<Row>({
        {L"gateway", L"gateway", L"", L"http://gateway"},
        {L"gateway:8080", L"gateway", L"8080", L"http://gateway"},
        {L":8080", L":8080", L"", L"http://:8080"},
        {L"ftp=relay:21", L"relay", L"21", L"http://relay"},
        {L"http=gateway:80", L"gateway", L"80", L"http://gateway"},
        {L"http=gateway", L"gateway", L"", L"http://gateway"},
        {L"http=a:80;https=b:443", L"a:80;https=b", L"443", L"http://a:80;https=b"},
        {L"ftp://relay:21", L"ftp://relay", L"21", L"http://elay"},
        {L"http://gateway:80", L"http://gateway", L"80", L"http://gateway"},
        {L"", L"", L"", L"http://"},
    }));
    UserSettings settings;
    settings.SetSystemProxy(text);
    CheckFound(L"", host, port, url);
}

TEST_CASE("CInternetProxy: a system's proxy that cannot be read is none", "[internet]")
{
    UserSettings settings;
    settings.SetSystemProxy(L"system:1");
    SECTION("missing")
    {
        ::RegDeleteKeyValueW(HKEY_CURRENT_USER, kInternetSettingsKey, L"ProxyServer");
        CheckNone();
    }
    SECTION("a number")
    {
        settings.SetNumber(kInternetSettingsKey, L"ProxyServer", 1);
        CheckNone();
    }
    SECTION("in a key that may not be written")
    {
        const DeniedKey denied(HKEY_CURRENT_USER, kInternetSettingsKey);
        CheckNone();
    }
}

TEST_CASE("CInternetProxy: a text in characters of the user's code page is whole", "[internet]")
{
    UserSettings settings;
    settings.SetLegacyProxy(L"gr\u00FCn:80");
    INFO("ANSI code page " << ::GetACP());
    if (::GetACP() == 1252)
    {
        CheckFound(L"gr\u00FCn:80", L"gr\u00FCn", L"80", L"http://gr\u00FCn");
    }
    CHECK(CInternetProxy().GetPort() == L"80");
}

TEST_CASE("CInternetProxy: finds when it is made, and a copy has the same", "[internet]")
{
    UserSettings settings;
    settings.SetLegacyProxy(L"gateway:1");
    const CInternetProxy proxy;
    settings.SetLegacyProxy(L"other:2");
    CInternetProxy copy(proxy);
    CHECK(copy.GetHost() == L"gateway");
    CHECK(copy.GetSessionProxy() == L"gateway:1");
    copy = CInternetProxy();
    CHECK(copy.GetUrl() == L"http://other");
}

TEST_CASE("CInternetProxy: a session goes through what was found", "[internet]")
{
    UserSettings settings;
    settings.SetSystemProxy(L"http=" + real_servers::Proxy());
    const CInternetProxy proxy;
    const auto before = real_servers::LogLines("proxy.log").size();
    {
        CInternetSession session(L"Velt test", 1, INTERNET_OPEN_TYPE_PROXY,
                                 proxy.GetSessionProxy().c_str(), nullptr, 0);
        const auto connection = session.GetHttpConnection(
            real_servers::kHost, real_servers::HttpPort(), nullptr, nullptr);
        const auto file =
            connection->OpenRequest(L"GET", L"/plain.txt", L"", 1, nullptr, L"HTTP/1.1", kFresh);
        file->SendRequest(L"", 0, nullptr, 0);
        CHECK(ReadAll(*file) == "plain text\n");
    }
    const auto lines = real_servers::LogLines("proxy.log");
    CHECK(
        std::any_of(lines.begin() + static_cast<std::ptrdiff_t>(before), lines.end(),
                    [](const std::string& line) { return line.find("/plain.txt") != line.npos; }));
}
