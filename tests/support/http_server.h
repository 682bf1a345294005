#pragma once

#include "foundation/win_critical_section.h"
#include "tests/support/test_thread.h"

#include <winsock2.h>

#include <windows.h>

#include <wininet.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace velt::test
{
/// Keeps the sockets library loaded.
class SocketsLibrary
{
public:
    SocketsLibrary();

    SocketsLibrary(const SocketsLibrary&) = delete;
    SocketsLibrary& operator=(const SocketsLibrary&) = delete;

    ~SocketsLibrary();
};

/// One request to an HttpServer, and the way to answer it: whichever bytes, whenever. When the
/// server's function returns, the connection is closed unless it is kept open.
class HttpExchange
{
public:
    HttpExchange(SOCKET socket, std::string request, std::size_t number)
        : m_socket(socket),
          m_request(std::move(request)),
          m_number(number)
    {
    }

    HttpExchange(const HttpExchange&) = delete;
    HttpExchange& operator=(const HttpExchange&) = delete;

    ~HttpExchange() = default;

    /// The request as it came: its head, an empty line, its body.
    const std::string& Request() const noexcept
    {
        return m_request;
    }

    /// How many requests the server had before this one.
    std::size_t Number() const noexcept
    {
        return m_number;
    }

    /// Sends bytes; false when the client has gone.
    bool Send(std::string_view bytes) noexcept;

    /// Closes the connection such that the client sees it reset, after the function has returned.
    void Reset() noexcept;

    /// Waits for another request of the same connection, after the function has returned.
    void KeepOpen() noexcept
    {
        m_keepOpen = true;
    }

    bool IsKeptOpen() const noexcept
    {
        return m_keepOpen;
    }

private:
    SOCKET m_socket;
    std::string m_request;
    std::size_t m_number;
    bool m_keepOpen = false;
};

/// An answer with a right content length: "HTTP/1.1 <status>", the lines of further headers, each
/// with its CR LF, and the body.
std::string HttpAnswer(std::string_view status, std::string_view body,
                       std::string_view headers = {});

/// A server on a free port of the loopback interface, which answers as its function says: for what
/// a real server never does. The function is called on a thread of each connection. Failures to
/// start throw std::runtime_error.
class HttpServer
{
public:
    using Answer = std::function<void(HttpExchange&)>;

    explicit HttpServer(Answer answer);

    /// Answers every request with the same bytes.
    explicit HttpServer(const std::string& bytes);

    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// Cuts the connections that are open and waits for the functions to return.
    ~HttpServer();

    INTERNET_PORT Port() const noexcept
    {
        return m_port;
    }

    /// The requests that came, in their order.
    std::vector<std::string> Requests() const;

    /// Waits until the connections have ended that there are, and forgets all requests.
    void Forget();

private:
    /// One connection, served on a thread of its own.
    struct Connection
    {
        SOCKET socket = INVALID_SOCKET; // none when it has been served
        std::unique_ptr<TestThread> thread;
    };

    /// Takes connections until the server stops.
    void Accept();
    void Serve(Connection& connection);

    /// Answers one request; whether the connection is kept open.
    bool AnswerOne(SOCKET socket, std::string request);

    SocketsLibrary m_sockets;
    Answer m_answer;
    SOCKET m_listener = INVALID_SOCKET;
    INTERNET_PORT m_port = 0;
    mutable WinCriticalSection m_lock;

    // guarded by m_lock
    bool m_stopping = false;
    std::vector<std::string> m_requests;
    std::vector<std::unique_ptr<Connection>> m_connections;

    std::unique_ptr<TestThread> m_thread; // which accepts
};

/// A port of the loopback interface that refuses every connection, and that nobody else gets.
class RefusingPort
{
public:
    RefusingPort();

    RefusingPort(const RefusingPort&) = delete;
    RefusingPort& operator=(const RefusingPort&) = delete;

    ~RefusingPort();

    INTERNET_PORT Port() const noexcept
    {
        return m_port;
    }

private:
    SocketsLibrary m_sockets;
    SOCKET m_socket;
    INTERNET_PORT m_port;
};
} // namespace velt::test
