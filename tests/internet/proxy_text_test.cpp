#include "internet/proxy_text.h"

#include <catch.hpp>

using velt::ProxyEndpoint;
using velt::ProxyUrl;
using velt::SessionProxy;
using velt::SplitHostPort;
using velt::SplitSystemProxy;

namespace
{
using Row = std::tuple<std::wstring, std::wstring, std::wstring>; // text, host, port

void CheckEndpoint(const ProxyEndpoint& endpoint, const Row& row)
{
    CHECK(endpoint.host == std::get<1>(row));
    CHECK(endpoint.port == std::get<2>(row));
}

/// Texts that both kinds of setting divide alike.
const std::vector<Row>& PlainRows()
{
    static const std::vector<Row> rows{
        {L"", L"", L""},
        {L"gateway", L"gateway", L""},
        {L"gateway:8080", L"gateway", L"8080"},
        {L"gateway:", L"gateway", L""},
        {L"g:1", L"g", L"1"},
        {L":", L":", L""},
        {L":8080", L":8080", L""},
        {L"::8080", L":", L"8080"},
        {L"::", L":", L""},
        {L"a:b:c", L"a:b", L"c"},
        {L"a:80;b:443", L"a:80;b", L"443"},
        {L"[::1]:3128", L"[::1]", L"3128"},
        {L"http://gateway:8080", L"http://gateway", L"8080"},
        {L"http://gateway", L"http", L"//gateway"},
        {L"gateway:port", L"gateway", L"port"},
        {L" gateway : 80 ", L" gateway ", L" 80 "},
        {L"\u00FC:80", L"\u00FC", L"80"},
        {L"https=secure:443", L"https=secure", L"443"},
        {L"socks=s:1080", L"socks=s", L"1080"},
        {L"HTTP=gateway:80", L"HTTP=gateway", L"80"},
        {L" http=gateway:80", L" http=gateway", L"80"},
        {L"https=b:443;http=a:80", L"https=b:443;http=a", L"80"},
        {L"http", L"http", L""},
        {L"ftp", L"ftp", L""},
    };
    return rows;
}
} // namespace

TEST_CASE("SplitHostPort: the last colon past the first character divides", "[internet]")
{
    const auto row = GENERATE(from_range(PlainRows()));
    CheckEndpoint(SplitHostPort(std::get<0>(row)), row);
}

TEST_CASE("SplitHostPort: knows no prefixes", "[internet]")
{
    const auto row = GENERATE(table<std::wstring, std::wstring, std::wstring>({
        {L"http=gateway:80", L"http=gateway", L"80"},
        {L"ftp=relay:21", L"ftp=relay", L"21"},
        {L"http=", L"http=", L""},
    }));
    CheckEndpoint(SplitHostPort(std::get<0>(row)), row);
}

TEST_CASE("SplitSystemProxy: without a prefix at the start it divides as a plain text",
          "[internet]")
{
    const auto row = GENERATE(from_range(PlainRows()));
    CheckEndpoint(SplitSystemProxy(std::get<0>(row)), row);
}

TEST_CASE("SplitSystemProxy: a prefix is cut off and the last colon after it divides", "[internet]")
{
    const auto row = GENERATE(table<std::wstring, std::wstring, std::wstring>({
        {L"http=gateway:80", L"gateway", L"80"},
        {L"ftp=relay:21", L"relay", L"21"},
        {L"http=gateway", L"gateway", L""},
        {L"ftp=relay", L"relay", L""},
        {L"http=", L"", L""},
        {L"ftp=", L"", L""},
        {L"http=:80", L"", L"80"}, // past a prefix, the first character may be the colon
        {L"ftp=:21", L"", L"21"},
        {L"http=:", L"", L""},
        {L"http=g:", L"g", L""},
        {L"http=a:80;https=b:443", L"a:80;https=b", L"443"},
        {L"ftp=a:21;http=b:80", L"a:21;http=b", L"80"},
        {L"http=a:80;https=b", L"a", L"80;https=b"},
        {L"http=http=a:1", L"http=a", L"1"},
        {L"ftp=http=a:1", L"http=a", L"1"},
        {L"http=ftp=a:1", L"ftp=a", L"1"},
        {L"http=http://gateway:80", L"http://gateway", L"80"},
        {L"http=http://gateway", L"http", L"//gateway"},
    }));
    CheckEndpoint(SplitSystemProxy(std::get<0>(row)), row);
}

TEST_CASE("ProxyUrl: http:// stands before a host that names no protocol", "[internet]")
{
    const auto [host, url] = GENERATE(table<std::wstring, std::wstring>({
        {L"", L"http://"},
        {L"gateway", L"http://gateway"},
        {L"https://gateway", L"http://https://gateway"},
        {L"http:/gateway", L"http://http:/gateway"},
        {L"ftp:/relay", L"http://ftp:/relay"},
        {L"HTTP://gateway", L"http://HTTP://gateway"},
        {L"FTP://relay", L"http://FTP://relay"},
        {L":8080", L"http://:8080"},
    }));
    CHECK(ProxyUrl(host) == url);
}

TEST_CASE("ProxyUrl: a host that contains http:// is the URL", "[internet]")
{
    const std::wstring host =
        GENERATE(values<std::wstring>({L"http://gateway", L"http://", L"xhttp://gateway",
                                       L"gateway http://", L"http://http://"}));
    CHECK(ProxyUrl(host) == host);
}

TEST_CASE("ProxyUrl: behind ftp:// one character more than the prefix is dropped", "[internet]")
{
    const auto [host, url] = GENERATE(table<std::wstring, std::wstring>({
        {L"ftp://", L"http://"}, // shorter than what is dropped
        {L"ftp://r", L"http://"},
        {L"ftp://re", L"http://e"},
        {L"ftp://rel", L"http://el"},
        {L"ftp://relay", L"http://elay"},
        {L"xftp://relay", L"http://elay"},
        {L"http://ftp://relay", L"http://elay"},
        {L"ftp://http://x", L"http://ttp://x"},
        {L"http://a ftp://", L"http://"},
        {L"http://a ftp://b", L"http://"},
        {L"ftp://ab ftp://cd", L"http://b ftp://cd"}, // the first one counts
    }));
    CHECK(ProxyUrl(host) == url);
}

TEST_CASE("SessionProxy: host and port with a colon, or the host alone", "[internet]")
{
    CHECK(SessionProxy({L"gateway", L"8080"}) == L"gateway:8080");
    CHECK(SessionProxy({L"gateway", L""}) == L"gateway");
    CHECK(SessionProxy({L"", L""}).empty());
    CHECK(SessionProxy({L"", L"8080"}).empty()); // a port of nothing is a direct connection
}
