#pragma once

#include "internet/proxy_text.h"

#include <string>

/// Finds the proxy to use when it is made: from the legacy value of the program's family, else from
/// the system's internet settings. What cannot be read is skipped; the result is no proxy then.
class CInternetProxy
{
public:
    /// Throws std::bad_alloc only.
    CInternetProxy();

    CInternetProxy(const CInternetProxy&) = default;
    CInternetProxy& operator=(const CInternetProxy&) = default;

    virtual ~CInternetProxy() = default;

    /// The legacy value as it stands; empty when there is none.
    const std::wstring& GetText() const noexcept;

    /// Host and port; both empty for a direct connection.
    const std::wstring& GetHost() const noexcept;
    const std::wstring& GetPort() const noexcept;

    /// The proxy's URL; see velt::ProxyUrl.
    const std::wstring& GetUrl() const noexcept;

    /// The text for an internet session; see velt::SessionProxy.
    std::wstring GetSessionProxy() const;

private:
    std::wstring m_text;
    velt::ProxyEndpoint m_endpoint;
    std::wstring m_url;
};
