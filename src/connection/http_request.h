#pragma once

#include "connection/body_buffer.h"
#include "connection/http_event.h"
#include "connection/http_session.h"
#include "foundation/exception_to_hresult.h"
#include "foundation/wide_text.h"
#include "internet/http_connection.h"
#include "internet/http_file.h"
#include "internet/internet_exception.h"

#include <windows.h>

#include <wininet.h>

#include <array>
#include <memory>
#include <new>
#include <string>
#include <utility>

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
    /// ends. Returns whether the exchange went through; a failure of the internet API is not thrown
    /// any further.
    bool Execute(Request& request)
    {
        std::unique_ptr<CHTTPSession<Request>> session;
        std::unique_ptr<CHttpConnection> connection;
        const Completion completion(*this); // goes first: file, OnComplete, connection, session
        try
        {
            const std::wstring proxy = Widen(request.GetProxy());
            session = std::make_unique<CHTTPSession<Request>>(
                this, proxy.empty() ? INTERNET_OPEN_TYPE_PRECONFIG : INTERNET_OPEN_TYPE_PROXY,
                proxy.empty() ? nullptr : proxy.c_str());
            session->EnableStatusCallback(true);
            connection = session->GetHttpConnection(Widen(request.GetServer()).c_str(),
                                                    request.GetPort(), nullptr, nullptr);
            Open(request, *connection);
            const DWORD status = Send(request, *session);
            if (status != HTTP_STATUS_OK)
            {
                ReportError(status);
                return true;
            }
            Deliver(request, *session);
            return true;
        }
        catch (const CInternetException& e)
        {
            // By design, most of the layer's exceptions carry their object's context for a code;
            // the thread's last error has the cause then.
            const DWORD cause = ::GetLastError();
            const bool abandoned = session && !session->GetHandle();
            ReportError(abandoned                 ? ERROR_INTERNET_OPERATION_CANCELLED
                        : e.GetCode() == kContext ? cause
                                                  : e.GetCode());
        }
        catch (const std::bad_alloc&)
        {
            ReportError(ERROR_NOT_ENOUGH_MEMORY);
        }
        return false;
    }

private:
    static constexpr DWORD kContext = 1;
    static constexpr DWORD kReadBytes = 8192;

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
            try
            {
                if (m_owner.m_event)
                {
                    m_owner.m_event->OnComplete();
                }
            }
            catch (...)
            {
                velt::TraceCurrentException(); // the exchange is over all the same
            }
        }

    private:
        CHTTPRequest& m_owner;
    };

    /// Narrow texts of a request are UTF-8.
    static std::wstring Widen(const std::string& text)
    {
        return velt::WideFromUtf8(text);
    }

    void ReportError(DWORD error)
    {
        if (m_event)
        {
            m_event->OnError(error);
        }
    }

    void Open(Request& request, CHttpConnection& connection)
    {
        const std::wstring acceptType = Widen(request.GetAcceptType());
        std::array<const wchar_t*, 2> acceptTypes{acceptType.c_str(), nullptr};
        m_file = connection.OpenRequest(
            Widen(request.GetVerb()).c_str(), Widen(request.GetObjectPath()).c_str(), L"", kContext,
            acceptType.empty() ? nullptr : acceptTypes.data(),
            Widen(request.GetHttpVersion()).c_str(), request.GetFlags());
        if constexpr (requires(Request & r) { r.OnOpened(*m_file); })
        {
            request.OnOpened(*m_file);
        }
    }

    /// Sends the request, again with the credentials for as long as the server asks for them: by
    /// design without a limit. Returns the response's status.
    DWORD Send(const Request& request, CInternetSession& session)
    {
        DWORD status = SendOnce(request);
        while (status == HTTP_STATUS_DENIED)
        {
            SetCredential(session, INTERNET_OPTION_USERNAME, request.GetUserName());
            SetCredential(session, INTERNET_OPTION_PASSWORD, request.GetPassword());
            status = SendOnce(request);
        }
        return status;
    }

    DWORD SendOnce(const Request& request)
    {
        DWORD length = 0;
        // The API takes the data as writable and does not write to it.
        void* const data = const_cast<void*>(request.GetRequestData(&length));
        m_file->SendRequest(L"", 0, data, length);
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

    /// By design, the bytes go as they are, although the option is a wide text's.
    static void SetCredential(CInternetSession& session, DWORD option, std::string value)
    {
        session.SetOption(option, value.data(), static_cast<DWORD>(value.size()), 0);
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
            if constexpr (requires(Request & r) { r.OnProgress(body.Size()); })
            {
                request.OnProgress(body.Size());
            }
        } while (read > 0 && session.GetHandle());
        const std::size_t size = body.Size();
        const auto joined = body.Join();
        request.OnBody(joined.get(), static_cast<DWORD>(size));
    }

    CHTTPEvent* m_event;
    std::unique_ptr<CHttpFile> m_file; // while the exchange runs
};
