#pragma once

#include "connection/body_buffer.h"
#include "connection/http_event.h"
#include "connection/http_failure.h"
#include "connection/http_session.h"
#include "foundation/wide_text.h"
#include "internet/http_connection.h"
#include "internet/http_file.h"
#include "internet/internet_exception.h"

#include <windows.h>

#include <wininet.h>

#include <array>
#include <cstddef>
#include <limits>
#include <memory>
#include <new>
#include <string>

/// Runs the HTTP exchange that a request describes. `Request` has the accessors of
/// CONNECTION_MANAGER::queue_request. A host's own type of request may also have
///
///     void OnOpened(CHttpFile& file);           // before it is sent; for options of the request
///     void OnProgress(std::size_t sizeBytes);   // how much of the body has come
///
/// Worker only.
template <class Request>
class CHTTPRequest
{
public:
    /// The sink may be null: the exchange is then abandoned as soon as a handle is created. It
    /// outlives this object.
    explicit CHTTPRequest(CHTTPEvent* event) noexcept : m_event(event) {}

    CHTTPRequest(const CHTTPRequest&) = delete;
    CHTTPRequest& operator=(const CHTTPRequest&) = delete;

    ~CHTTPRequest() = default;

    CHTTPEvent* GetEvent() const noexcept
    {
        return m_event;
    }

    /// Sends the request, delivers the body of a response with status 200, and tells the sink of
    /// everything else: OnError for a failure or another status, and OnComplete once, however it
    /// ends. Returns whether the exchange went through. Nothing is thrown: what the request's
    /// accessors or OnBody throw ends the exchange as a failure.
    bool Execute(Request& request) noexcept
    {
        std::unique_ptr<CHTTPSession<Request>> session;
        std::unique_ptr<CHttpConnection> connection;
        const Completion completion(*this); // goes first: file, OnComplete, connection, session
        try
        {
            const Description asked(request);
            session = std::make_unique<CHTTPSession<Request>>(
                this, asked.proxy.empty() ? INTERNET_OPEN_TYPE_PRECONFIG : INTERNET_OPEN_TYPE_PROXY,
                asked.proxy.empty() ? nullptr : asked.proxy.c_str());
            session->EnableStatusCallback(true);
            connection =
                session->GetHttpConnection(asked.server.c_str(), asked.port, nullptr, nullptr);
            Open(asked, *connection);
            if constexpr (requires { request.OnOpened(*m_file); })
            {
                request.OnOpened(*m_file);
            }
            const DWORD status = Send(asked, *session);
            if (status != HTTP_STATUS_OK)
            {
                velt::TellError(m_event, status);
                return true;
            }
            Deliver(request, *session);
            return true;
        }
        catch (...)
        {
            const DWORD cause = ::GetLastError();
            const DWORD error = velt::HttpFailureOfCurrentException(kContext, cause);
            const bool abandoned = session && !session->GetHandle();
            velt::TellError(m_event, abandoned ? ERROR_INTERNET_OPERATION_CANCELLED : error);
        }
        return false;
    }

private:
    static constexpr DWORD kContext = 1;
    static constexpr DWORD kReadBytes = 8192;

    /// What the request asks for, read once: it may answer differently the next time.
    struct Description
    {
        explicit Description(Request& request)
            : password(request.GetPassword()),
              userName(request.GetUserName()),
              data(request.GetRequestData(&dataLength)),
              flags(request.GetFlags()),
              httpVersion(Widen(request.GetHttpVersion())),
              acceptType(Widen(request.GetAcceptType())),
              object(Widen(request.GetObjectPath())),
              verb(Widen(request.GetVerb())),
              port(request.GetPort()),
              server(Widen(request.GetServer())),
              proxy(Widen(request.GetProxy()))
        {
        }

        std::string password;
        std::string userName;
        DWORD dataLength = 0;
        const void* data;
        DWORD flags;
        std::wstring httpVersion;
        std::wstring acceptType;
        std::wstring object;
        std::wstring verb;
        INTERNET_PORT port;
        std::wstring server;
        std::wstring proxy;
    };

    /// Ends an exchange: the file goes, then the sink is told.
    class Completion
    {
    public:
        explicit Completion(CHTTPRequest& owner) noexcept : m_owner(owner) {}

        Completion(const Completion&) = delete;
        Completion& operator=(const Completion&) = delete;

        ~Completion()
        {
            m_owner.m_file.reset();
            velt::TellComplete(m_owner.m_event);
        }

    private:
        CHTTPRequest& m_owner;
    };

    /// Narrow texts of a request are UTF-8.
    static std::wstring Widen(const std::string& text)
    {
        return velt::WideFromUtf8(text);
    }

    void Open(const Description& asked, CHttpConnection& connection)
    {
        std::array<const wchar_t*, 2> acceptTypes{asked.acceptType.c_str(), nullptr};
        m_file = connection.OpenRequest(asked.verb.c_str(), asked.object.c_str(), L"", kContext,
                                        asked.acceptType.empty() ? nullptr : acceptTypes.data(),
                                        asked.httpVersion.c_str(), asked.flags);
    }

    /// Sends the request, again with the credentials for as long as the server asks for them: by
    /// design without a limit. Returns the response's status.
    DWORD Send(const Description& asked, CInternetSession& session)
    {
        DWORD status = SendOnce(asked);
        while (status == HTTP_STATUS_DENIED)
        {
            SetCredential(session, INTERNET_OPTION_USERNAME, asked.userName);
            SetCredential(session, INTERNET_OPTION_PASSWORD, asked.password);
            status = SendOnce(asked);
        }
        return status;
    }

    DWORD SendOnce(const Description& asked)
    {
        // The API takes the data as writable and does not write to it.
        m_file->SendRequest(L"", 0, const_cast<void*>(asked.data), asked.dataLength);
        DWORD status = 0;
        if (!m_file->QueryInfoStatusCode(&status))
        {
            throw CInternetException(::GetLastError()); // abandoned while the response came in
        }
        if (status == 0)
        {
            throw CInternetException(ERROR_HTTP_INVALID_SERVER_RESPONSE); // none to speak of
        }
        return status;
    }

    /// By design, the bytes go as they are, although the option is a wide text's and its length is
    /// one in characters: the system may read twice as far, and finds zeros there.
    static void SetCredential(CInternetSession& session, DWORD option, std::string value)
    {
        const std::size_t length = value.size();
        value.resize(2 * length);
        session.SetOption(option, value.data(), static_cast<DWORD>(length), 0);
    }

    void Deliver(Request& request, const CInternetSession& session)
    {
        DWORD contentLength = 0; // asked for and not used, by design
        DWORD length = sizeof(contentLength);
        m_file->QueryInfo(HTTP_QUERY_CONTENT_LENGTH | HTTP_QUERY_FLAG_NUMBER, &contentLength,
                          &length, nullptr);
        velt::BodyBuffer body;
        DWORD read = 0;
        do
        {
            read = m_file->Read(body.Reserve(kReadBytes), kReadBytes);
            body.Commit(read);
            if constexpr (requires { request.OnProgress(body.Size()); })
            {
                request.OnProgress(body.Size());
            }
        } while (read > 0 && session.GetHandle());
        if (!session.GetHandle())
        {
            throw CInternetException(ERROR_INTERNET_OPERATION_CANCELLED); // it may be a part only
        }
        const std::size_t size = body.Size();
        if (size > std::numeric_limits<DWORD>::max())
        {
            throw std::bad_alloc(); // more than a request can be given
        }
        const auto joined = body.Join();
        request.OnBody(joined.get(), static_cast<DWORD>(size));
    }

    CHTTPEvent* m_event;
    std::unique_ptr<CHttpFile> m_file; // while the exchange runs
};
