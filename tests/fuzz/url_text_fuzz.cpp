// Takes any text for a URL or a proxy's address: the parts are parts of it, and together all of it.

#include "connection/plain_url.h"
#include "internet/file_url.h"
#include "internet/proxy_text.h"
#include "internet/url_text.h"
#include "tests/fuzz/require.h"

#include <string>
#include <string_view>

using velt::test::Require;

namespace
{
void CheckPlainUrl(std::string_view url)
{
    const auto parts = velt::CutPlainUrl(url);
    if (!parts)
    {
        return;
    }
    const std::string scheme = parts->isSecure ? "https://" : "http://";
    const std::string port = ":" + std::to_string(parts->port);
    const std::string host = scheme + std::string(parts->host);
    const std::string object(parts->object);
    const bool isOwnPort = parts->port == (parts->isSecure ? 443 : 80);
    Require(url == host + port + object || (isOwnPort && url == host + object), "nothing is lost");
    Require(!parts->host.empty() && object.starts_with('/'));
    Require(velt::WithoutFragment(url) == url && velt::UnescapeUrl(url) == url,
            "there is nothing in it to change");
    Require(velt::CredentialsOf(url).userName.empty() && velt::CredentialsOf(url).password.empty());
}

void CheckEscapes(std::string_view url)
{
    Require(velt::UnescapeUrl(url).size() <= url.size());
    Require(url.find('%') != url.npos || velt::UnescapeUrl(url) == url);
    std::string escaped;
    for (const char c : url)
    {
        constexpr char kDigits[] = "0123456789ABCDEF";
        const auto byte = static_cast<unsigned char>(c);
        escaped += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
    Require(velt::UnescapeUrl(escaped) == url, "all bytes can be escaped");

    const std::string_view request = velt::WithoutFragment(url);
    Require(url.starts_with(request) && request.find('#') == request.npos);
    Require(request == url || url[request.size()] == '#');
    const velt::UrlCredentials who = velt::CredentialsOf(request);
    Require(who.userName.size() + who.password.size() <= request.size());
}

void CheckProxy(const std::wstring& text)
{
    const velt::ProxyEndpoint plain = velt::SplitHostPort(text);
    Require(text == plain.host || text == plain.host + L":" + plain.port, "nothing is lost");
    Require(plain.port.find(L':') == std::wstring::npos);
    const velt::ProxyEndpoint system = velt::SplitSystemProxy(text);
    Require(text.size() >= system.host.size() + system.port.size());
    const std::wstring session = velt::SessionProxy(plain);
    Require(session == text || (plain.port.empty() && session == plain.host), "it is said again");
    Require(velt::ProxyUrl(text).find(L"http://") != std::wstring::npos);
    Require(velt::FileUrl(text, text).starts_with(L"http://" + text));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(data, data + size);
    CheckPlainUrl(bytes);
    CheckPlainUrl("http://host.invalid" + bytes);
    CheckEscapes(bytes);
    CheckProxy(std::wstring(data, data + size));
    return 0;
}
