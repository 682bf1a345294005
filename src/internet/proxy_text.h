#pragma once

#include <string>
#include <string_view>

namespace velt
{
struct ProxyEndpoint
{
    std::wstring host;
    std::wstring port; // decimal text as found; empty when none was given
};

/// Divides "host:port" at the last colon, provided that colon is past the first character. Every
/// text is valid; one without such a colon is all host. Throws std::bad_alloc only.
ProxyEndpoint SplitHostPort(std::wstring_view text);

/// Divides a proxy text of the system's settings: as SplitHostPort, after a prefix "http=" or
/// "ftp=" at its very start. By design the last colon of the whole text counts, so a list such as
/// "http=a:80;https=b:443" has the host "a:80;https=b".
ProxyEndpoint SplitSystemProxy(std::wstring_view text);

/// The URL of a proxy host: "http://" and the host; the host itself when it contains "http://". By
/// design, a host that contains "ftp://" loses one character more than that prefix holds.
std::wstring ProxyUrl(std::wstring_view host);

/// The proxy text for an internet session: "host:port", or "host" without a port; empty for a
/// direct connection.
std::wstring SessionProxy(const ProxyEndpoint& endpoint);
} // namespace velt
