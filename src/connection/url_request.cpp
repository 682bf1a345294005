#include "connection/url_request.h"

#include "connection/http_request.h"
#include "connection/plain_url.h"
#include "foundation/system_exception.h"
#include "foundation/wide_text.h"
#include "internet/parse_url.h"
#include "internet/url_text.h"

#include <string_view>
#include <utility>

namespace CONNECTION_MANAGER
{
url_request::url_request(const url_options& options, CHTTPEvent* event, ICallback* callback)
    : m_data(options.data),
      m_flags(options.flags),
      m_event(event),
      m_callback(callback)
{
    const std::string_view url = velt::WithoutFragment(options.url);
    TakeParts(url);
    m_properties.verb = options.verb;
    m_properties.acceptType = options.acceptType;
    if (options.userName.empty() && options.password.empty())
    {
        velt::UrlCredentials credentials = velt::CredentialsOf(url);
        m_properties.userName = std::move(credentials.userName);
        m_properties.password = std::move(credentials.password);
    }
    else
    {
        m_properties.userName = options.userName;
        m_properties.password = options.password;
    }
    m_properties.proxy = options.proxy;
}

url_request::~url_request() = default;

void url_request::TakeParts(std::string_view url)
{
    if (const auto plain = velt::CutPlainUrl(url)) // most are, and need none of the system's care
    {
        m_port = plain->port;
        m_flags |= plain->isSecure ? DWORD{INTERNET_FLAG_SECURE} : 0;
        m_properties.server = plain->host;
        m_properties.object = plain->object;
        return;
    }
    velt::ServiceType service{};
    std::wstring server;
    std::wstring object;
    const bool valid =
        velt::ParseURL(velt::WideFromUtf8(url).c_str(), service, server, object, m_port);
    if (!valid || server.empty() ||
        (service != velt::ServiceType::http && service != velt::ServiceType::https))
    {
        throw SystemException::HRESULT(E_INVALIDARG);
    }
    if (service == velt::ServiceType::https)
    {
        m_flags |= INTERNET_FLAG_SECURE;
    }
    m_properties.server = velt::Utf8FromWide(server);
    m_properties.object = velt::Utf8FromWide(object);
}

const std::optional<std::string>& url_request::GetBody() const noexcept
{
    return m_body;
}

std::string url_request::GetPassword() const
{
    return m_properties.password;
}

std::string url_request::GetUserName() const
{
    return m_properties.userName;
}

void url_request::OnBody(const char* body, DWORD lengthBytes)
{
    m_body.emplace(body, lengthBytes);
}

const void* url_request::GetRequestData(DWORD* lengthBytes) const
{
    *lengthBytes = static_cast<DWORD>(m_data.size());
    return m_data.empty() ? nullptr : m_data.data();
}

DWORD url_request::GetFlags() const
{
    return m_flags;
}

std::string url_request::GetHttpVersion() const
{
    return m_properties.httpVersion;
}

std::string url_request::GetAcceptType() const
{
    return m_properties.acceptType;
}

std::string url_request::GetObjectPath() const
{
    return m_properties.object;
}

std::string url_request::GetVerb() const
{
    return m_properties.verb;
}

INTERNET_PORT url_request::GetPort() const
{
    return m_port;
}

std::string url_request::GetServer() const
{
    return m_properties.server;
}

DWORD url_request::Step(connection_object&, const std::vector<std::string>&, bool)
{
    if (!m_cancelled)
    {
        CHTTPRequest<queue_request>(m_event).Execute(*this);
    }
    return kFinished;
}

void url_request::Complete(connection_object&, DWORD*)
{
    if (m_callback)
    {
        m_callback->OnRequestComplete(*this);
    }
}

bool url_request::IsCancelled() const
{
    return m_cancelled;
}

std::string url_request::GetProxy() const
{
    return m_properties.proxy;
}

void url_request::Cancel() noexcept
{
    m_cancelled = true;
}
} // namespace CONNECTION_MANAGER
