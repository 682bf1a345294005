#include "tests/support/http_server.h"

#include "foundation/velt_auto_critical_section.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>
#include <utility>

namespace velt::test
{
namespace
{
constexpr std::string_view kHeadEnd = "\r\n\r\n";

sockaddr_in LoopbackAddress(INTERNET_PORT port) noexcept
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    address.sin_port = ::htons(port);
    return address;
}

/// A socket that is bound to a free port of the loopback interface.
SOCKET BoundSocket()
{
    const SOCKET socket = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    const sockaddr_in address = LoopbackAddress(0);
    if (socket == INVALID_SOCKET ||
        ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
    {
        throw std::runtime_error("no socket");
    }
    return socket;
}

INTERNET_PORT PortOf(SOCKET socket) noexcept
{
    sockaddr_in address{};
    int size = sizeof(address);
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    return ::ntohs(address.sin_port);
}

/// The length of the body that the head of a request announces.
std::size_t BodyLength(std::string head)
{
    constexpr std::string_view kName = "\r\ncontent-length:";
    std::transform(head.begin(), head.end(), head.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    const std::size_t found = head.find(kName);
    if (found == head.npos)
    {
        return 0;
    }
    const std::size_t digits = head.find_first_not_of(' ', found + kName.size());
    std::size_t length = 0;
    std::from_chars(head.data() + digits, head.data() + head.size(), length);
    return length;
}

/// Reads one whole request; empty when the client has gone. `surplus` is what came beyond it.
std::string Receive(SOCKET socket, std::string& surplus)
{
    std::string text = std::exchange(surplus, {});
    std::array<char, 8192> piece;
    for (;;)
    {
        const std::size_t headEnd = text.find(kHeadEnd);
        if (headEnd != text.npos)
        {
            const std::size_t head = headEnd + kHeadEnd.size();
            const std::size_t whole = head + BodyLength(text.substr(0, head));
            if (text.size() >= whole)
            {
                surplus = text.substr(whole);
                text.resize(whole);
                return text;
            }
        }
        const int count = ::recv(socket, piece.data(), static_cast<int>(piece.size()), 0);
        if (count <= 0)
        {
            return {};
        }
        text.append(piece.data(), static_cast<std::size_t>(count));
    }
}
} // namespace

SocketsLibrary::SocketsLibrary()
{
    WSADATA data{};
    if (::WSAStartup(MAKEWORD(2, 2), &data) != 0)
    {
        throw std::runtime_error("no sockets");
    }
}

SocketsLibrary::~SocketsLibrary()
{
    ::WSACleanup();
}

bool HttpExchange::Send(std::string_view bytes) noexcept
{
    while (!bytes.empty())
    {
        const int sent = ::send(m_socket, bytes.data(), static_cast<int>(bytes.size()), 0);
        if (sent <= 0)
        {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

void HttpExchange::Reset() noexcept
{
    const linger atOnce{1, 0};
    ::setsockopt(m_socket, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&atOnce),
                 sizeof(atOnce));
}

std::string HttpAnswer(std::string_view status, std::string_view body, std::string_view headers)
{
    return std::string("HTTP/1.1 ")
        .append(status)
        .append("\r\nContent-Length: ")
        .append(std::to_string(body.size()))
        .append("\r\n")
        .append(headers)
        .append("\r\n")
        .append(body);
}

HttpServer::HttpServer(Answer answer) : m_answer(std::move(answer)), m_listener(BoundSocket())
{
    m_port = PortOf(m_listener);
    if (::listen(m_listener, SOMAXCONN) != 0)
    {
        throw std::runtime_error("no listener");
    }
    m_thread = std::make_unique<TestThread>([this] { Accept(); });
}

HttpServer::HttpServer(const std::string& bytes)
    : HttpServer([bytes](HttpExchange& exchange) { exchange.Send(bytes); })
{
}

HttpServer::~HttpServer()
{
    {
        const VeltAutoCriticalSection lock(&m_lock);
        m_stopping = true;
        for (const auto& connection : m_connections)
        {
            if (connection->socket != INVALID_SOCKET)
            {
                ::shutdown(connection->socket, SD_BOTH);
            }
        }
    }
    // The accepting thread waits for a connection, so it gets one.
    const SOCKET last = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    const sockaddr_in address = LoopbackAddress(m_port);
    ::connect(last, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    m_thread.reset();
    ::closesocket(last);
    ::closesocket(m_listener);
    m_connections.clear(); // waits for the threads
}

std::vector<std::string> HttpServer::Requests() const
{
    const VeltAutoCriticalSection lock(&m_lock);
    return m_requests;
}

void HttpServer::Forget()
{
    std::vector<std::unique_ptr<Connection>> served; // its end waits for the threads
    const VeltAutoCriticalSection lock(&m_lock);
    served.swap(m_connections);
    m_requests = {};
}

void HttpServer::Accept()
{
    for (;;)
    {
        const SOCKET socket = ::accept(m_listener, nullptr, nullptr);
        const VeltAutoCriticalSection lock(&m_lock);
        if (m_stopping || socket == INVALID_SOCKET)
        {
            ::closesocket(socket);
            return;
        }
        std::erase_if(m_connections, [](const std::unique_ptr<Connection>& connection) {
            return connection->socket == INVALID_SOCKET;
        });
        Connection& connection = *m_connections.emplace_back(std::make_unique<Connection>());
        connection.socket = socket;
        connection.thread =
            std::make_unique<TestThread>([this, &connection] { Serve(connection); });
    }
}

void HttpServer::Serve(Connection& connection)
{
    const SOCKET socket = connection.socket;
    try
    {
        std::string surplus;
        std::string request;
        do
        {
            request = Receive(socket, surplus);
        } while (!request.empty() && AnswerOne(socket, std::move(request)));
    }
    catch (const std::exception&)
    {
        // An event that the answer waited for did not come: the client sees the connection end.
    }
    // The client has the last word, for a moment: what it may still send must not reset the
    // connection while it reads the answer.
    ::shutdown(socket, SD_SEND);
    const DWORD limitMs = 100;
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&limitMs),
                 sizeof(limitMs));
    std::array<char, 512> rest{};
    while (::recv(socket, rest.data(), static_cast<int>(rest.size()), 0) > 0)
    {
    }
    const VeltAutoCriticalSection lock(&m_lock);
    ::closesocket(socket);
    connection.socket = INVALID_SOCKET;
}

bool HttpServer::AnswerOne(SOCKET socket, std::string request)
{
    std::size_t number = 0;
    {
        const VeltAutoCriticalSection lock(&m_lock);
        number = m_requests.size();
        m_requests.push_back(request);
    }
    HttpExchange exchange(socket, std::move(request), number);
    m_answer(exchange);
    return exchange.IsKeptOpen();
}

RefusingPort::RefusingPort() : m_socket(BoundSocket()), m_port(PortOf(m_socket)) {}

RefusingPort::~RefusingPort()
{
    ::closesocket(m_socket);
}
} // namespace velt::test
