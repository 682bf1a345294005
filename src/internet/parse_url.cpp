#include "internet/parse_url.h"

#include <algorithm>
#include <optional>

namespace velt
{
namespace
{
constexpr DWORD kUrlCharacters = 2084; // the longest URL of the system's browser, with its NUL

/// The URL in canonical form; nothing when the system refuses it.
std::optional<std::wstring> Canonicalize(const wchar_t* url)
{
    std::wstring canonical(kUrlCharacters, L'\0');
    auto length = static_cast<DWORD>(canonical.size());
    BOOL done = ::InternetCanonicalizeUrlW(url, canonical.data(), &length, ICU_BROWSER_MODE);
    if (!done && ::GetLastError() == ERROR_INSUFFICIENT_BUFFER)
    {
        canonical.resize(length + 1);
        length = static_cast<DWORD>(canonical.size());
        done = ::InternetCanonicalizeUrlW(url, canonical.data(), &length, ICU_BROWSER_MODE);
    }
    if (!done)
    {
        return std::nullopt;
    }
    canonical.resize(std::min<std::size_t>(length, canonical.size()));
    return canonical;
}

ServiceType ServiceOf(INTERNET_SCHEME scheme) noexcept
{
    switch (scheme)
    {
    case INTERNET_SCHEME_FTP:
        return ServiceType::ftp;
    case INTERNET_SCHEME_GOPHER:
        return ServiceType::gopher;
    case INTERNET_SCHEME_HTTP:
        return ServiceType::http;
    case INTERNET_SCHEME_HTTPS:
        return ServiceType::https;
    case INTERNET_SCHEME_FILE:
        return ServiceType::file;
    case INTERNET_SCHEME_NEWS:
        return ServiceType::news;
    case INTERNET_SCHEME_MAILTO:
        return ServiceType::mailto;
    default:
        return ServiceType::unknown;
    }
}
} // namespace

bool ParseURL(const wchar_t* url, ServiceType& service, std::wstring& server, std::wstring& object,
              INTERNET_PORT& port)
{
    service = ServiceType::unknown;
    if (!url)
    {
        return false;
    }
    const auto canonical = Canonicalize(url);
    if (!canonical)
    {
        return false;
    }
    std::wstring host(kUrlCharacters + 1, L'\0');
    std::wstring path(kUrlCharacters + 1, L'\0');
    URL_COMPONENTSW components{};
    components.dwStructSize = sizeof(components);
    components.lpszHostName = host.data();
    components.dwHostNameLength = kUrlCharacters;
    components.lpszUrlPath = path.data();
    components.dwUrlPathLength = kUrlCharacters;
    if (!::InternetCrackUrlW(canonical->c_str(), 0, 0, &components))
    {
        return false;
    }
    host.resize(components.dwHostNameLength);
    path.resize(components.dwUrlPathLength);
    service = ServiceOf(components.nScheme);
    server = std::move(host);
    object = std::move(path);
    port = components.nPort;
    return true;
}
} // namespace velt
