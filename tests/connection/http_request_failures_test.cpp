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
constexpr DWORD kCause = ERROR_INTERNET_SEC_CERT_REVOKED; // which nothing here gives by itself

Calls Failed(DWORD error)
{
    return {"error " + std::to_string(error), "complete", "done"};
}

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
                ::SetLastError(kCause);
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
    CheckExchangeEnds<"InternetOpenW", decltype(::InternetOpenW)>(HINTERNET{}, kCause);
}

TEST_CASE("CHTTPRequest: a callback that cannot be installed ends the exchange", "[connection]")
{
    CheckExchangeEnds<"InternetSetStatusCallbackW", decltype(::InternetSetStatusCallbackW)>(
        INTERNET_INVALID_STATUS_CALLBACK, kCause);
}

TEST_CASE("CHTTPRequest: a connection that cannot be opened ends the exchange", "[connection]")
{
    CheckExchangeEnds<"InternetConnectW", decltype(::InternetConnectW)>(HINTERNET{}, kCause);
}

TEST_CASE("CHTTPRequest: a request that cannot be opened is noticed when it is sent",
          "[connection]")
{
    CheckExchangeEnds<"HttpOpenRequestW", decltype(::HttpOpenRequestW)>(HINTERNET{},
                                                                        ERROR_INVALID_HANDLE);
}

TEST_CASE("CHTTPRequest: a request that cannot be sent ends the exchange", "[connection]")
{
    CheckExchangeEnds<"HttpSendRequestW", decltype(::HttpSendRequestW)>(FALSE, kCause);
}

TEST_CASE("CHTTPRequest: a status that cannot be had ends the exchange", "[connection]")
{
    CheckExchangeEnds<"HttpQueryInfoW", decltype(::HttpQueryInfoW)>(FALSE, kCause);
}

TEST_CASE("CHTTPRequest: a read that fails ends the exchange", "[connection]")
{
    const LONG failingCall = GENERATE(1, 2, 3); // 8193 bytes take three
    CheckExchangeEnds<"InternetReadFile", decltype(::InternetReadFile)>(FALSE, kCause, failingCall);
}

TEST_CASE("CHTTPRequest: no length is no failure", "[connection]")
{
    using Patch = ImportPatch<"HttpQueryInfoW", decltype(::HttpQueryInfoW)>;
    const Patch patch(
        "wininet.dll",
        [](HINTERNET file, DWORD level, void* buffer, DWORD* length, DWORD* index) -> WINBOOL {
            if (level != HTTP_QUERY_STATUS_CODE)
            {
                ::SetLastError(kCause);
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

TEST_CASE("CHTTPRequest: after a 401 it sets the user, then the password, as narrow bytes",
          "[connection]")
{
    using Patch = ImportPatch<"InternetSetOptionExW", decltype(::InternetSetOptionExW)>;
    CallLog options;
    const Patch patch(
        "wininet.dll",
        [&](HINTERNET, DWORD option, void* buffer, DWORD length, DWORD flags) -> WINBOOL {
            options.Add(std::to_string(option) + " " +
                        std::string(static_cast<const char*>(buffer), length) + " " +
                        std::to_string(flags));
            ::SetLastError(kCause);
            return FALSE; // which is ignored
        });
    const HttpServer server([](HttpExchange& exchange) {
        exchange.Send(exchange.Number() == 0 ? HttpAnswer("401 No", "", "Connection: close\r\n")
                                             : HttpAnswer("200 OK", "second"));
    });
    RequestQueue queue;
    auto page = UrlOptions(server.Port());
    page.userName = "us\xC3\xA9r";
    page.password = "secret word";
    const Fetch fetch(page);
    queue.Run(fetch);
    CHECK(options.All() == Calls{"28 us\xC3\xA9r 0", "29 secret word 0"});
    CHECK(fetch.Outcome() == Calls{"complete", "done"});
    CHECK(fetch.request->GetBody() == "second");
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
