#pragma once

#include "connection/callback.h"
#include "connection/http_event.h"
#include "connection/queue_request.h"

#include <windows.h>

#include <wininet.h>

#include <atomic>
#include <optional>
#include <string>
#include <string_view>

namespace CONNECTION_MANAGER
{
/// What a url_request fetches. Narrow texts are UTF-8.
struct url_options
{
    std::string url; // http or https; its fragment stays at home
    std::string verb = "GET";
    std::string acceptType; // empty for none
    std::string userName;   // both empty for those of the URL, if it has any
    std::string password;
    std::string proxy; // "host:port" or "host"; empty for the system's own configuration
    std::string data;  // sent with the request, when it is not empty
    DWORD flags = 0;   // INTERNET_FLAG_..., beside those that the URL's scheme needs
};

/// A request for one URL: one exchange in one step.
class url_request : public queue_request
{
public:
    /// The sink and the callback may be null, and must outlive the request. Throws
    /// SystemException::HRESULT with E_INVALIDARG for a URL that is not one of HTTP.
    url_request(const url_options& options, CHTTPEvent* event, ICallback* callback);

    url_request(const url_request&) = delete;
    url_request& operator=(const url_request&) = delete;

    ~url_request() override;

    /// The body that the exchange delivered, a copy; nothing when there was none. Only after the
    /// request is complete.
    const std::optional<std::string>& GetBody() const noexcept;

    std::string GetPassword() const override;
    std::string GetUserName() const override;
    void OnBody(const char* body, DWORD lengthBytes) override;
    const void* GetRequestData(DWORD* lengthBytes) const override;
    DWORD GetFlags() const override;
    std::string GetHttpVersion() const override;
    std::string GetAcceptType() const override;
    std::string GetObjectPath() const override;
    std::string GetVerb() const override;
    INTERNET_PORT GetPort() const override;
    std::string GetServer() const override;
    DWORD Step(connection_object& connection, const std::vector<std::string>& probeHosts,
               bool mayConnect) override;
    void Complete(connection_object& connection, DWORD* value) override;
    bool IsCancelled() const override;
    std::string GetProxy() const override;

    /// Not wanted any more: a step that has not begun does nothing and finishes. Any thread may
    /// call.
    void Cancel() noexcept;

private:
    /// What goes out. Not the connection's properties: those read the user's settings for an agent,
    /// which is the session's matter.
    struct Properties
    {
        std::string httpVersion = "HTTP/1.1";
        std::string verb;
        std::string server;
        std::string object;
        std::string acceptType;
        std::string userName;
        std::string password;
        std::string proxy;
    };

    /// Server, port, object and flags of a URL.
    void TakeParts(std::string_view url);

    // constant after construction
    Properties m_properties;
    INTERNET_PORT m_port = INTERNET_DEFAULT_HTTP_PORT;
    std::string m_data;
    DWORD m_flags;
    CHTTPEvent* m_event;
    ICallback* m_callback;

    std::atomic<bool> m_cancelled = false;
    std::optional<std::string> m_body; // worker only, until the request is complete
};
} // namespace CONNECTION_MANAGER
