#include "internet/proxy_text.h"

#include <cstddef>

namespace velt
{
namespace
{
constexpr std::wstring_view kHttp = L"http://";
constexpr std::wstring_view kFtp = L"ftp://";

ProxyEndpoint SplitAt(std::wstring_view text, std::size_t colon)
{
    return {std::wstring(text.substr(0, colon)), std::wstring(text.substr(colon + 1))};
}
} // namespace

ProxyEndpoint SplitHostPort(std::wstring_view text)
{
    const std::size_t colon = text.rfind(L':');
    if (colon == text.npos || colon == 0)
    {
        return {std::wstring(text), {}};
    }
    return SplitAt(text, colon);
}

ProxyEndpoint SplitSystemProxy(std::wstring_view text)
{
    for (const std::wstring_view prefix : {L"http=", L"ftp="})
    {
        if (text.starts_with(prefix))
        {
            text.remove_prefix(prefix.size());
            const std::size_t colon = text.rfind(L':');
            return colon == text.npos ? ProxyEndpoint{std::wstring(text), {}}
                                      : SplitAt(text, colon);
        }
    }
    return SplitHostPort(text);
}

std::wstring ProxyUrl(std::wstring_view host)
{
    const std::size_t ftp = host.find(kFtp);
    if (ftp != host.npos)
    {
        // The tail is shorter by the length of "http://" after the place of "ftp://"; a host that
        // ends there has none.
        const std::size_t cut = ftp + kHttp.size();
        const std::wstring_view tail = cut < host.size() ? host.substr(cut) : std::wstring_view();
        return std::wstring(kHttp).append(tail);
    }
    if (host.find(kHttp) != host.npos)
    {
        return std::wstring(host);
    }
    return std::wstring(kHttp).append(host);
}

std::wstring SessionProxy(const ProxyEndpoint& endpoint)
{
    if (endpoint.host.empty() || endpoint.port.empty())
    {
        return endpoint.host;
    }
    return std::wstring(endpoint.host).append(1, L':').append(endpoint.port);
}
} // namespace velt
