#include "connection/http_request.h"

#include "tests/connection/request_queue.h"
#include "tests/support/http_server.h"
#include "tests/support/import_patch.h"
#include "tests/support/process_usage.h"
#include "tests/support/real_servers.h"

#include <catch.hpp>

#include <atomic>
#include <string>

using namespace velt::test;
using Calls = CallLog::Calls;

namespace
{
constexpr DWORD kRevoked = ERROR_INTERNET_SEC_CERT_REVOKED; // which nothing here gives by itself

/// Has the `failingCall`-th call of a function of the internet API fail during one exchange.
template <FunctionName Name, class Signature, class Result>
void CheckExchangeEnds(Result failed, DWORD expectedError, LONG failingCall = 1)
{
    using Patch = ImportPatch<Name, Signature>;
    RequestQueue queue;
    const auto page = UrlOptions(real_servers::HttpPort(), "/body-8193");
    const auto exchange = [&](LONG call) {
        std::atomic<LONG> calls = 0;
        const Patch patch("wininet.dll", [&](auto... arguments) {
            if (++calls == call)
            {
                ::SetLastError(kRevoked);
                return failed;
            }
            return Patch::Original(arguments...);
        });
        const Fetch fetch(page);
        queue.Run(fetch);
        CHECK(calls >= call);
        CHECK(fetch.Outcome() == Failed(expectedError));
        CHECK_FALSE(fetch.request->GetBody().has_value());
        CHECK(OpenHandles() == 0);
    };
    exchange(failingCall);
    const std::size_t before = CurrentUsage().handles;
    for (int round = 0; round < 10; ++round)
    {
        exchange(failingCall);
    }
    CHECK(CurrentUsage().handles <= before + 2); // the system's own connections come and go

    const Fetch next(page);
    queue.Run(next);
    CHECK(next.Outcome() == Calls{"complete", "done"});
    CHECK(OpenHandles() == 0);
}
} // namespace

TEST_CASE("CHTTPRequest: a session that cannot be opened ends the exchange", "[connection]")
{
    CheckExchangeEnds<"InternetOpenW", decltype(::InternetOpenW)>(HINTERNET{}, kRevoked);
}

TEST_CASE("CHTTPRequest: a callback that cannot be installed ends the exchange", "[connection]")
{
    CheckExchangeEnds<"InternetSetStatusCallbackW", decltype(::InternetSetStatusCallbackW)>(
        INTERNET_INVALID_STATUS_CALLBACK, kRevoked);
}

TEST_CASE("CHTTPRequest: a connection that cannot be opened ends the exchange", "[connection]")
{
    CheckExchangeEnds<"InternetConnectW", decltype(::InternetConnectW)>(HINTERNET{}, kRevoked);
}

TEST_CASE("CHTTPRequest: a request that cannot be opened is noticed when it is sent",
          "[connection]")
{
    CheckExchangeEnds<"HttpOpenRequestW", decltype(::HttpOpenRequestW)>(HINTERNET{},
                                                                        ERROR_INVALID_HANDLE);
}

TEST_CASE("CHTTPRequest: a request that cannot be sent ends the exchange", "[connection]")
{
    CheckExchangeEnds<"HttpSendRequestW", decltype(::HttpSendRequestW)>(FALSE, kRevoked);
}

TEST_CASE("CHTTPRequest: a status that cannot be had ends the exchange", "[connection]")
{
    CheckExchangeEnds<"HttpQueryInfoW", decltype(::HttpQueryInfoW)>(FALSE, kRevoked);
}

TEST_CASE("CHTTPRequest: a read that fails ends the exchange", "[connection]")
{
    const LONG failingCall = GENERATE(1, 2, 3); // 8193 bytes take three
    CheckExchangeEnds<"InternetReadFile", decltype(::InternetReadFile)>(FALSE, kRevoked,
                                                                        failingCall);
}

TEST_CASE("CHTTPRequest: no length is no failure", "[connection]")
{
    using Patch = ImportPatch<"HttpQueryInfoW", decltype(::HttpQueryInfoW)>;
    const Patch patch(
        "wininet.dll",
        [](HINTERNET file, DWORD level, void* buffer, DWORD* length, DWORD* index) -> WINBOOL {
            if (level != HTTP_QUERY_STATUS_CODE)
            {
                ::SetLastError(kRevoked);
                return FALSE;
            }
            return Patch::Original(file, level, buffer, length, index);
        });
    RequestQueue queue;
    const Fetch fetch(UrlOptions(real_servers::HttpPort(), "/body-8193"));
    queue.Run(fetch);
    CHECK(fetch.Outcome() == Calls{"complete", "done"});
    CHECK(patch.Calls() == 2);
}

TEST_CASE("CHTTPRequest: a body of 8192 bytes takes two reads of 8192", "[connection]")
{
    using Patch = ImportPatch<"InternetReadFile", decltype(::InternetReadFile)>;
    CallLog reads;
    const Patch patch("wininet.dll",
                      [&](HINTERNET file, void* buffer, DWORD count, DWORD* read) -> WINBOOL {
                          const WINBOOL result = Patch::Original(file, buffer, count, read);
                          reads.Add(std::to_string(count) + " " + std::to_string(*read));
                          return result;
                      });
    RequestQueue queue;
    const Fetch fetch(UrlOptions(real_servers::HttpPort(), "/body-8192"));
    queue.Run(fetch);
    CHECK(reads.All() == Calls{"8192 8192", "8192 0"});
}

TEST_CASE("CHTTPRequest: before each send after a 401 it sets the user, then the password, as "
          "narrow bytes with zeros behind them",
          "[connection]")
{
    using OptionPatch = ImportPatch<"InternetSetOptionExW", decltype(::InternetSetOptionExW)>;
    using SendPatch = ImportPatch<"HttpSendRequestW", decltype(::HttpSendRequestW)>;
    CallLog calls;
    const OptionPatch optionPatch(
        "wininet.dll",
        [&](HINTERNET, DWORD option, void* buffer, DWORD length, DWORD flags) -> WINBOOL {
            // The length is one of characters to the system, which reads them as wide ones.
            const std::string read(static_cast<const char*>(buffer), length * sizeof(wchar_t));
            calls.Add(std::to_string(option) + " " + read.substr(0, length) + " " +
                      std::to_string(flags) +
                      (read.find_first_not_of('\0', length) == read.npos ? "" : " and more"));
            ::SetLastError(kRevoked);
            return FALSE; // which is ignored
        });
    const SendPatch sendPatch("wininet.dll", [&](auto... arguments) {
        calls.Add("send");
        return SendPatch::Original(arguments...);
    });
    const HttpServer server([](HttpExchange& exchange) {
        exchange.Send(exchange.Number() < 3 ? HttpAnswer("401 No", "", "Connection: close\r\n")
                                            : HttpAnswer("200 OK", "fourth"));
    });
    RequestQueue queue;
    auto page = UrlOptions(server.Port());
    page.userName = "us\xC3\xA9r";
    page.password = GENERATE(std::string("secret word"), std::string(), std::string(200, 'p'));
    const Fetch fetch(page);
    queue.Run(fetch);
    const Calls again = {"28 us\xC3\xA9r 0", "29 " + page.password + " 0", "send"};
    Calls expected = {"send"};
    for (int refusal = 0; refusal < 3; ++refusal)
    {
        expected.insert(expected.end(), again.begin(), again.end());
    }
    CHECK(calls.All() == expected);
    CHECK(fetch.Outcome() == Calls{"complete", "done"});
    CHECK(fetch.request->GetBody() == "fourth");
}

TEST_CASE("CHTTPRequest: the connection is opened without credentials", "[connection]")
{
    using Patch = ImportPatch<"InternetConnectW", decltype(::InternetConnectW)>;
    bool hasUser = true;
    bool hasPassword = true;
    const Patch patch("wininet.dll", [&](HINTERNET session, const wchar_t* server,
                                         INTERNET_PORT port, const wchar_t* user,
                                         const wchar_t* password, DWORD service, DWORD flags,
                                         DWORD_PTR context) {
        hasUser = user != nullptr;
        hasPassword = password != nullptr;
        return Patch::Original(session, server, port, user, password, service, flags, context);
    });
    RequestQueue queue;
    auto page = UrlOptions(real_servers::HttpPort(), "/body-1");
    page.userName = "user";
    page.password = "secret";
    const Fetch fetch(page);
    queue.Run(fetch);
    CHECK(fetch.Outcome() == Calls{"complete", "done"});
    CHECK_FALSE(hasUser);
    CHECK_FALSE(hasPassword);
}

TEST_CASE("CHTTPRequest: is sent with an empty text of length 0 for headers", "[connection]")
{
    using Patch = ImportPatch<"HttpSendRequestW", decltype(::HttpSendRequestW)>;
    std::wstring headers = L"?";
    DWORD headersLength = 77;
    const Patch patch("wininet.dll", [&](HINTERNET file, const wchar_t* text, DWORD length,
                                         void* data, DWORD dataLength) {
        headers = text ? text : L"(none)";
        headersLength = length;
        return Patch::Original(file, text, length, data, dataLength);
    });
    RequestQueue queue;
    const Fetch fetch(UrlOptions(real_servers::HttpPort(), "/body-1"));
    queue.Run(fetch);
    CHECK(headers.empty());
    CHECK(headersLength == 0);
}

TEST_CASE("CHTTPRequest: the length of a body is asked for as a number", "[connection]")
{
    using Patch = ImportPatch<"HttpQueryInfoW", decltype(::HttpQueryInfoW)>;
    CallLog queries;
    const Patch patch(
        "wininet.dll", [&](HINTERNET file, DWORD level, void* buffer, DWORD* length, DWORD* index) {
            queries.Add(std::to_string(level) + ", " + std::to_string(*length) + " bytes");
            return Patch::Original(file, level, buffer, length, index);
        });
    RequestQueue queue;
    const Fetch fetch(UrlOptions(real_servers::HttpPort(), "/body-1"));
    queue.Run(fetch);
    CHECK(queries.All() ==
          Calls{"19, 80 bytes",
                std::to_string(HTTP_QUERY_CONTENT_LENGTH | HTTP_QUERY_FLAG_NUMBER) + ", 4 bytes"});
}

TEST_CASE("CHTTPRequest: a failure that left no code is an internal error", "[connection]")
{
    using Patch = ImportPatch<"HttpSendRequestW", decltype(::HttpSendRequestW)>;
    const Patch patch("wininet.dll", [](HINTERNET, const wchar_t*, DWORD, void*, DWORD) {
        ::SetLastError(ERROR_SUCCESS);
        return FALSE;
    });
    RequestQueue queue;
    const Fetch fetch(UrlOptions(real_servers::HttpPort(), "/body-1"));
    queue.Run(fetch);
    CHECK(fetch.Outcome() == Failed(ERROR_INTERNET_INTERNAL_ERROR));
}

TEST_CASE("CHTTPRequest: a body that is cancelled at any of its pieces is not delivered",
          "[connection]")
{
    using CallbackPatch =
        ImportPatch<"InternetSetStatusCallbackW", decltype(::InternetSetStatusCallbackW)>;
    using ReadPatch = ImportPatch<"InternetReadFile", decltype(::InternetReadFile)>;
    constexpr int kPieces = 5; // and a read that finds the end
    const std::string body(kPieces * 8192, 'b');
    const bool behind = GENERATE(false, true); // the piece that is read, or the one before it
    const HttpServer server(HttpAnswer("200 OK", body));
    RequestQueue queue;
    for (int piece = 1; piece <= kPieces + 2; ++piece)
    {
        CAPTURE(piece, behind);
        Fetch fetch(UrlOptions(server.Port()));
        bool cancels = false;
        fetch.sink.onStatus = [&](DWORD, DWORD_PTR) { return cancels; };
        INTERNET_STATUS_CALLBACK callback = nullptr;
        const CallbackPatch callbackPatch(
            "wininet.dll", [&](HINTERNET handle, INTERNET_STATUS_CALLBACK installed) {
                callback = installed ? installed : callback;
                return CallbackPatch::Original(handle, installed);
            });
        int reads = 0;
        const ReadPatch readPatch(
            "wininet.dll", [&](HINTERNET file, void* buffer, DWORD count, DWORD* read) -> WINBOOL {
                // Systems report different statuses while a body is read; this one comes at each
                // piece.
                const auto report = [&] {
                    cancels = reads == piece;
                    callback(file, 1, INTERNET_STATUS_RESPONSE_RECEIVED, read, sizeof(*read));
                    cancels = false;
                };
                ++reads;
                if (behind)
                {
                    const WINBOOL done = ReadPatch::Original(file, buffer, count, read);
                    report();
                    return done;
                }
                report();
                return ReadPatch::Original(file, buffer, count, read);
            });
        queue.Run(fetch);
        if (piece <= reads)
        {
            CHECK(fetch.Outcome() == Failed(ERROR_INTERNET_OPERATION_CANCELLED));
            CHECK_FALSE(fetch.request->GetBody().has_value());
            CHECK(reads == piece);
        }
        else
        {
            CHECK(piece > kPieces + 1);
            CHECK(fetch.Outcome() == Calls{"complete", "done"});
            CHECK((fetch.request->GetBody() == body));
        }
        CHECK(OpenHandles() == 0);
    }
}

TEST_CASE("CHTTPRequest: the session is opened for the request's proxy", "[connection]")
{
    using Patch = ImportPatch<"InternetOpenW", decltype(::InternetOpenW)>;
    struct Opened
    {
        std::wstring agent;
        DWORD type = 77;
        std::wstring proxy;
        bool hasBypass = true;
        DWORD flags = 77;
    } opened;
    const Patch patch(
        "wininet.dll",
        [&](const wchar_t* agent, DWORD type, const wchar_t* proxy, const wchar_t* bypass,
            DWORD flags) -> HINTERNET {
            opened = {agent, type, proxy ? proxy : L"(none)", bypass != nullptr, flags};
            return nullptr;
        });
    RequestQueue queue;
    auto page = UrlOptions(80);
    page.proxy = GENERATE("", "gateway:8080", "gateway");
    const Fetch fetch(page);
    queue.Run(fetch);
    CHECK(opened.agent == L"Velt HTTP agent");
    CHECK(opened.type == (page.proxy.empty() ? 0u : 3u));
    CHECK(opened.proxy ==
          (page.proxy.empty() ? L"(none)" : std::wstring(page.proxy.begin(), page.proxy.end())));
    CHECK_FALSE(opened.hasBypass);
    CHECK(opened.flags == 0);
}

TEST_CASE("CHTTPRequest: the request is opened with context 1 and no referer", "[connection]")
{
    using Patch = ImportPatch<"HttpOpenRequestW", decltype(::HttpOpenRequestW)>;
    struct Opened
    {
        std::wstring referer = L"?";
        std::wstring version;
        std::wstring acceptTypes;
        DWORD flags = 0;
        DWORD_PTR context = 77;
    } opened;
    const Patch patch("wininet.dll",
                      [&](HINTERNET, const wchar_t*, const wchar_t*, const wchar_t* version,
                          const wchar_t* referer, const wchar_t** acceptTypes, DWORD flags,
                          DWORD_PTR context) -> HINTERNET {
                          opened = {referer, version, L"(none)", flags, context};
                          if (acceptTypes)
                          {
                              opened.acceptTypes = acceptTypes[0];
                              opened.acceptTypes += acceptTypes[1] ? L" and more" : L"";
                          }
                          return nullptr;
                      });
    const auto [url, acceptType, flags, expectedFlags] =
        GENERATE(table<std::string, std::string, DWORD, DWORD>(
            {{"http://host.invalid/", "", 0, 0},
             {"http://host.invalid/", "*/*", kFresh, kFresh},
             {"https://host.invalid/", "", kFresh, kFresh | INTERNET_FLAG_SECURE}}));
    RequestQueue queue;
    CONNECTION_MANAGER::url_options page;
    page.url = url;
    page.acceptType = acceptType;
    page.flags = flags;
    const Fetch fetch(page);
    queue.Run(fetch);
    CHECK(fetch.Outcome() == Failed(ERROR_INVALID_HANDLE));
    CHECK(opened.referer.empty());
    CHECK(opened.version == L"HTTP/1.1");
    CHECK(opened.acceptTypes == (acceptType.empty() ? L"(none)" : L"*/*"));
    CHECK(opened.flags == expectedFlags);
    CHECK(opened.context == 1);
}
