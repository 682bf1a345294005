#pragma once

#include "internet/handle_registry.h"
#include "internet/http_connection.h"
#include "internet/http_file.h"
#include "internet/internet_exception.h"
#include "internet/internet_session.h"

#include <windows.h>

#include <wininet.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace velt::test
{
/// Everything comes from the server, and nothing is kept of it.
inline constexpr DWORD kFresh = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE;

/// The context value of an Exchange's session, and so the code of most of its failures.
inline constexpr DWORD kExchangeContext = 0x5157;

/// A session that uses no proxy, a connection and a request file, opened as the queue does.
struct Exchange
{
    explicit Exchange(INTERNET_PORT port, const wchar_t* object = L"/",
                      const wchar_t* verb = L"GET", DWORD flags = kFresh)
        : session(L"Velt test", kExchangeContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0),
          connection(session.GetHttpConnection(L"127.0.0.1", port, nullptr, nullptr)),
          file(connection->OpenRequest(verb, object, L"", 1, nullptr, L"HTTP/1.1", flags))
    {
    }

    void Send()
    {
        file->SendRequest(L"", 0, nullptr, 0);
    }

    /// The status of the answer; 0 without one.
    DWORD Status()
    {
        DWORD status = 0;
        return file->QueryInfoStatusCode(&status) ? status : 0;
    }

    CInternetSession session;
    std::unique_ptr<CHttpConnection> connection;
    std::unique_ptr<CHttpFile> file;
};

/// Reads a file to its end in pieces of that many bytes.
inline std::string ReadAll(CInternetFile& file, DWORD pieceBytes = 8192)
{
    std::string body;
    std::string piece(pieceBytes, '?');
    while (const DWORD read = file.Read(piece.data(), pieceBytes))
    {
        body.append(piece, 0, read);
    }
    return body;
}

/// The code of the CInternetException that a function throws; nothing when it throws none.
template <class Function>
std::optional<DWORD> CodeOf(Function&& function)
{
    try
    {
        function();
    }
    catch (const CInternetException& e)
    {
        return e.GetCode();
    }
    return std::nullopt;
}

/// How many handles the layer has open in this process.
inline std::size_t OpenHandles()
{
    return HandleRegistry::Instance().Size();
}
} // namespace velt::test
