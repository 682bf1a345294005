#include "connection/http_request.h"

#include "tests/connection/request_queue.h"
#include "tests/support/eventually.h"
#include "tests/support/http_server.h"
#include "tests/support/real_servers.h"
#include "tests/support/trace_recorder.h"

#include <catch.hpp>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <map>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using namespace velt::test;
using CONNECTION_MANAGER::queue_request;
using CONNECTION_MANAGER::url_options;
using Calls = CallLog::Calls;

namespace
{
/// What every exchange that went through tells its sink.
const Calls kWentThrough = {"complete", "done"};

/// A request's head by its parts.
struct Head
{
    explicit Head(const std::string& request)
    {
        std::istringstream lines(request);
        std::getline(lines, line);
        line.pop_back(); // CR
        for (std::string header; std::getline(lines, header) && header != "\r";)
        {
            const std::size_t colon = header.find(": ");
            headers[header.substr(0, colon)] =
                header.substr(colon + 2, header.size() - colon - 3); // without CR
        }
    }

    std::vector<std::string> Names() const
    {
        std::vector<std::string> names;
        for (const auto& [name, value] : headers)
        {
            names.push_back(name);
        }
        return names;
    }

    std::string line;
    std::map<std::string, std::string> headers;
};

/// The options of a GET from the real server.
url_options RealPage(const std::string& object)
{
    return UrlOptions(real_servers::HttpPort(), object);
}

/// Checks that the next request works and that nothing is left of this one.
void CheckNothingIsLeft(RequestQueue& queue)
{
    CHECK(OpenHandles() == 0);
    const Fetch next(RealPage("/plain.txt"));
    queue.Run(next);
    CHECK(next.Outcome() == kWentThrough);
    CHECK(next.request->GetBody() == "plain text\n");
    CHECK(OpenHandles() == 0);
}
} // namespace

TEST_CASE("CHTTPRequest: a page with status 200 is delivered byte for byte", "[connection]")
{
    const auto [object, size] =
        GENERATE(table<std::string, std::size_t>({{"/empty", 0},
                                                  {"/body-1", 1},
                                                  {"/body-8191", 8191},
                                                  {"/body-8192", 8192},
                                                  {"/body-8193", 8193},
                                                  {"/large", real_servers::kLargeBytes}}));
    CAPTURE(object);
    RequestQueue queue;
    const Fetch fetch(RealPage(object));
    queue.Run(fetch);
    CHECK(fetch.Outcome() == kWentThrough);
    REQUIRE(fetch.request->GetBody().has_value());
    REQUIRE(fetch.request->GetBody()->size() == size);
    CHECK((*fetch.request->GetBody() == real_servers::LargeBytes(0, size)));
    CheckNothingIsLeft(queue);
}

TEST_CASE("CHTTPRequest: chunks are put together, a redirection is followed", "[connection]")
{
    const std::string object = GENERATE("/chunked", "/moved", "/plain.txt");
    CAPTURE(object);
    RequestQueue queue;
    const Fetch fetch(RealPage(object));
    queue.Run(fetch);
    CHECK(fetch.Outcome() == kWentThrough);
    CHECK(fetch.request->GetBody() == "plain text\n");
    CheckNothingIsLeft(queue);
}

TEST_CASE("CHTTPRequest: a status other than 200 is an error without a body", "[connection]")
{
    RequestQueue queue;
    SECTION("from the real server")
    {
        const Fetch fetch(RealPage("/nothing/here"));
        queue.Run(fetch);
        CHECK(fetch.Outcome() == Failed(404));
        CHECK_FALSE(fetch.request->GetBody().has_value());
    }
    SECTION("whichever")
    {
        const DWORD status = GENERATE(values<DWORD>({201, 204, 206, 400, 403, 407, 500, 503, 599}));
        const HttpServer server(HttpAnswer(std::to_string(status) + " Text", "body"));
        const Fetch fetch(UrlOptions(server.Port()));
        queue.Run(fetch);
        CHECK(fetch.Outcome() == Failed(status));
        CHECK_FALSE(fetch.request->GetBody().has_value());
        CHECK(server.Requests().size() == 1);
    }
    CheckNothingIsLeft(queue);
}

TEST_CASE("CHTTPRequest: the request says what it was asked to and nothing else", "[connection]")
{
    const HttpServer server(HttpAnswer("200 OK", "ok"));
    RequestQueue queue;
    url_options options = UrlOptions(server.Port(), "/some/page.txt?a=1&b=2");
    options.flags = 0;
    const Fetch fetch(options);
    queue.Run(fetch);
    REQUIRE(server.Requests().size() == 1);
    const Head head(server.Requests()[0]);
    CHECK(head.line == "GET /some/page.txt?a=1&b=2 HTTP/1.1");
    CHECK(head.headers.at("User-Agent") == "Velt HTTP agent");
    CHECK(head.headers.at("Host") == "127.0.0.1:" + std::to_string(server.Port()));
    // Those that the system may add; no Accept, no Referer, none of ours.
    for (const std::string& name : head.Names())
    {
        CAPTURE(name);
        CHECK((name == "User-Agent" || name == "Host" || name == "Connection" ||
               name == "Cache-Control" || name == "Pragma"));
    }
}

TEST_CASE("CHTTPRequest: an accept type is sent as the only one", "[connection]")
{
    const HttpServer server(HttpAnswer("200 OK", "ok"));
    RequestQueue queue;
    url_options options = UrlOptions(server.Port());
    options.acceptType = "text/x-velt";
    const Fetch fetch(options);
    queue.Run(fetch);
    REQUIRE(server.Requests().size() == 1);
    CHECK(Head(server.Requests()[0]).headers.at("Accept") == "text/x-velt");
}

TEST_CASE("CHTTPRequest: the data goes as the request's body", "[connection]")
{
    const HttpServer server(HttpAnswer("200 OK", "ok"));
    RequestQueue queue;
    const std::string verb = GENERATE("POST", "PUT");
    const std::string data = GENERATE(std::string("a=1&b=2"), std::string("\0\xFF\r\n\r\n\0", 7),
                                      std::string(100'000, 'd'));
    url_options options = UrlOptions(server.Port());
    options.verb = verb;
    options.data = data;
    const Fetch fetch(options);
    queue.Run(fetch);
    CHECK(fetch.Outcome() == kWentThrough);
    REQUIRE(server.Requests().size() == 1);
    const std::string request = server.Requests()[0];
    const Head head(request);
    CHECK(head.line == verb + " / HTTP/1.1");
    CHECK(head.headers.at("Content-Length") == std::to_string(data.size()));
    CHECK((request.substr(request.find("\r\n\r\n") + 4) == data));
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CHTTPRequest: the proxy of a request is used", "[connection]")
{
    // By its name, because a connection to the address that is open already would be used again.
    url_options options = UrlOptions(real_servers::HttpPort());
    options.url = "http://localhost:" + std::to_string(real_servers::HttpPort()) + "/body-8193";
    RequestQueue queue;
    SECTION("a real one")
    {
        const std::size_t before = real_servers::LogLines("proxy.log").size();
        options.proxy = "127.0.0.1:" + std::to_string(real_servers::ProxyPort());
        const Fetch fetch(options);
        queue.Run(fetch);
        CHECK(fetch.Outcome() == kWentThrough);
        REQUIRE(fetch.request->GetBody().has_value());
        CHECK((*fetch.request->GetBody() == real_servers::LargeBytes(0, 8193)));
        CHECK(Eventually([&] { return real_servers::LogLines("proxy.log").size() > before; }));
    }
    SECTION("one that refuses the connection")
    {
        const RefusingPort proxy;
        options.proxy = "127.0.0.1:" + std::to_string(proxy.Port());
        const Fetch fetch(options);
        queue.Run(fetch);
        CHECK(fetch.Outcome() == Failed(ERROR_INTERNET_CANNOT_CONNECT));
    }
    SECTION("one that refuses the request")
    {
        const HttpServer proxy(HttpAnswer("403 Forbidden", "not through here"));
        options.proxy = "127.0.0.1:" + std::to_string(proxy.Port());
        const Fetch fetch(options);
        queue.Run(fetch);
        CHECK(fetch.Outcome() == Failed(403));
        REQUIRE(proxy.Requests().size() == 1);
        CHECK(Head(proxy.Requests()[0]).line == "GET " + options.url + " HTTP/1.1");
    }
    CheckNothingIsLeft(queue);
}

TEST_CASE("CHTTPRequest: a host that is not there is an error", "[connection]")
{
    RequestQueue queue;
    SECTION("no such name")
    {
        url_options options;
        options.url = "http://no.such.host.invalid/";
        const Fetch fetch(options);
        queue.Run(fetch);
        CHECK(fetch.Outcome() == Failed(ERROR_INTERNET_NAME_NOT_RESOLVED));
    }
    SECTION("nobody listens")
    {
        const RefusingPort port;
        const Fetch fetch(UrlOptions(port.Port()));
        queue.Run(fetch);
        CHECK(fetch.Outcome() == Failed(ERROR_INTERNET_CANNOT_CONNECT));
    }
    CheckNothingIsLeft(queue);
}

TEST_CASE("CHTTPRequest: after a 401 it asks again and delivers the body of the 200",
          "[connection]")
{
    const std::size_t refusals = GENERATE(1u, 2u, 5u);
    const std::string kinds = GENERATE("WWW-Authenticate: Basic realm=\"velt\"\r\n", "");
    CAPTURE(refusals, kinds);
    const HttpServer server([=](HttpExchange& exchange) {
        const std::string headers = "Connection: close\r\n" + kinds;
        exchange.Send(exchange.Number() < refusals ? HttpAnswer("401 No", "who are you", headers)
                                                   : HttpAnswer("200 OK", "second", headers));
    });
    RequestQueue queue;
    url_options options = UrlOptions(server.Port());
    options.userName = "user";
    options.password = "secret";
    options.verb = "POST";
    options.data = "data";
    const Fetch fetch(options);
    queue.Run(fetch);
    CHECK(fetch.Outcome() == kWentThrough);
    CHECK(fetch.request->GetBody() == "second");
    CHECK(server.Requests().size() == refusals + 1);
    for (const std::string& request : server.Requests())
    {
        CHECK(request.ends_with("\r\n\r\ndata")); // each time
    }
    CheckNothingIsLeft(queue);
}

TEST_CASE("CHTTPRequest: a server that answers 401 for ever is asked until the sink gives up",
          "[connection]")
{
    constexpr int kPatience = 20;
    RequestQueue queue;
    url_options options = RealPage("/private/");
    options.userName = "user";
    options.password = "secret";
    Fetch fetch(options);
    int responses = 0;
    fetch.sink.onStatus = [&](DWORD status, DWORD_PTR) {
        return status == INTERNET_STATUS_RESPONSE_RECEIVED && ++responses == kPatience;
    };
    const std::size_t before = real_servers::LogLines("access.log").size();
    queue.Run(fetch);
    if (fetch.Outcome() == kWentThrough)
    {
        // A system that takes the credentials' bytes for what they are.
        CHECK(fetch.request->GetBody() == "private text\n");
    }
    else
    {
        WARN("the system sends no credentials: the option's bytes are not a wide text");
        REQUIRE(fetch.Outcome().size() == 3);
        CHECK(fetch.Outcome()[0].starts_with("error "));
        CHECK(fetch.Outcome()[0] != "error 0");
        CHECK(fetch.Outcome()[1] == "complete");
        CHECK_FALSE(fetch.request->GetBody().has_value());
        CHECK(Eventually([&] { // a line is written after its answer
            return real_servers::LogLines("access.log").size() == before + kPatience;
        }));
    }
    CheckNothingIsLeft(queue);
}

TEST_CASE("CHTTPRequest: credentials are not sent before they are asked for", "[connection]")
{
    const HttpServer server(HttpAnswer("200 OK", "ok"));
    RequestQueue queue;
    url_options options = UrlOptions(server.Port());
    options.userName = "user";
    options.password = "secret";
    const Fetch fetch(options);
    queue.Run(fetch);
    REQUIRE(server.Requests().size() == 1);
    CHECK(Head(server.Requests()[0]).headers.count("Authorization") == 0);
}

namespace
{
/// What becomes of a response that is not as it should be: an error, or that body.
struct OddResponse
{
    const char* what;
    std::string bytes;
    bool mayFail;
    std::vector<std::string> bodies; // those that a system may make of it
};

const OddResponse kOddResponses[] = {
    {"closed without an answer", "", true, {}},
    {"cut in the status line", "HTTP/1.1 20", true, {}},
    {"cut in a header", "HTTP/1.1 200 OK\r\nContent-Le", true, {""}},
    {"cut before the empty line", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n", true, {""}},
    {"cut in the body",
     "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n0123456789",
     true,
     {"0123456789"}},
    {"longer than it says",
     "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n0123456789",
     false,
     {"0123", "0123456789"}},
    {"without a length", "HTTP/1.1 200 OK\r\n\r\n0123456789", false, {"0123456789"}},
    {"a negative length",
     "HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\n0123456789",
     true,
     {"", "0123456789"}},
    {"a length that is none",
     "HTTP/1.1 200 OK\r\nContent-Length: abc\r\n\r\n0123456789",
     true,
     {"", "0123456789"}},
    {"a length beyond 32 bits",
     "HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\n0123456789",
     true,
     {"0123456789"}},
    {"chunks",
     "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
     "5\r\n01234\r\n3\r\n567\r\n0\r\n\r\n",
     false,
     {"01234567"}},
    {"chunks that are cut",
     "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
     "5\r\n01234\r\n9\r\n567",
     true,
     {"01234", "01234567"}},
    {"chunks without a size",
     "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n01234",
     true,
     {""}},
    {"a NUL in the body",
     "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n" + std::string("a\0b", 3),
     false,
     {std::string("a\0b", 3)}},
};
} // namespace

TEST_CASE("CHTTPRequest: a response that is cut or wrong ends in an error or a body, once",
          "[connection]")
{
    RequestQueue queue;
    for (const OddResponse& odd : kOddResponses)
    {
        CAPTURE(odd.what);
        const HttpServer server(odd.bytes);
        const Fetch fetch(UrlOptions(server.Port()));
        queue.Run(fetch);
        const Calls outcome = fetch.Outcome();
        CAPTURE(outcome);
        if (outcome == kWentThrough)
        {
            REQUIRE(fetch.request->GetBody().has_value());
            CHECK(std::count(odd.bodies.begin(), odd.bodies.end(), *fetch.request->GetBody()) == 1);
        }
        else
        {
            CHECK(odd.mayFail);
            REQUIRE(outcome.size() == 3);
            CHECK(outcome[0].starts_with("error "));
            CHECK(outcome[0] != "error 0");
            CHECK(outcome[1] == "complete");
            CHECK_FALSE(fetch.request->GetBody().has_value());
        }
        CHECK(OpenHandles() == 0);
    }
    CheckNothingIsLeft(queue);
}

TEST_CASE("CHTTPRequest: a connection that is reset ends the exchange", "[connection]")
{
    const auto [what, bytes] = GENERATE(table<std::string, std::string>(
        {{"before the response", ""},
         {"in the head", "HTTP/1.1 200 OK\r\nConte"},
         {"in the body", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n0123456789"}}));
    CAPTURE(what);
    const HttpServer server([part = bytes](HttpExchange& exchange) {
        exchange.Send(part);
        exchange.Reset();
    });
    RequestQueue queue;
    const Fetch fetch(UrlOptions(server.Port()));
    queue.Run(fetch);
    const Calls outcome = fetch.Outcome();
    CAPTURE(outcome);
    if (outcome == kWentThrough)
    {
        WARN("a response that is cut by a reset is taken for a whole one");
        CHECK(what != "before the response");
        REQUIRE(fetch.request->GetBody().has_value());
        const std::string body = *fetch.request->GetBody();
        CHECK((body.empty() || body == "0123456789"));
    }
    else
    {
        REQUIRE(outcome.size() == 3);
        CHECK(outcome[0].starts_with("error "));
        CHECK(outcome[0] != "error 0");
        CHECK(outcome[1] == "complete");
    }
    CheckNothingIsLeft(queue);
}

TEST_CASE("CHTTPRequest: a server that takes its time is waited for", "[connection]")
{
    const HttpServer server([](HttpExchange& exchange) {
        ::Sleep(300);
        exchange.Send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n");
        ::Sleep(300);
        exchange.Send("\r\n01234");
        ::Sleep(300);
        exchange.Send("56789");
    });
    RequestQueue queue;
    const Fetch fetch(UrlOptions(server.Port()));
    queue.Run(fetch);
    CHECK(fetch.Outcome() == kWentThrough);
    CHECK(fetch.request->GetBody() == "0123456789");
    CheckNothingIsLeft(queue);
}

namespace
{
/// A request that describes an exchange and looks at the body where it lies. Its texts are lent.
class LookingRequest
{
public:
    explicit LookingRequest(INTERNET_PORT port) : m_port(port) {}

    std::string GetPassword() const
    {
        Accessed();
        return {};
    }
    std::string GetUserName() const
    {
        Accessed();
        return {};
    }
    const void* GetRequestData(DWORD*) const
    {
        Accessed();
        return nullptr;
    }
    DWORD GetFlags() const
    {
        Accessed();
        return kFresh;
    }
    std::string GetHttpVersion() const
    {
        Accessed();
        return version;
    }
    std::string GetAcceptType() const
    {
        Accessed();
        return {};
    }
    std::string GetObjectPath() const
    {
        Accessed();
        return object;
    }
    std::string GetVerb() const
    {
        Accessed();
        return verb;
    }
    INTERNET_PORT GetPort() const
    {
        Accessed();
        return m_port;
    }
    std::string GetServer() const
    {
        Accessed();
        return "127.0.0.1";
    }
    std::string GetProxy() const
    {
        Accessed();
        return {};
    }

    void OnBody(const char* body, DWORD lengthBytes)
    {
        ++deliveries;
        length = lengthBytes;
        last = body[lengthBytes];
        if (onBody)
        {
            onBody();
        }
    }

    std::string version = "HTTP/1.1";
    std::string object = "/";
    std::string verb = "GET";
    std::function<void()> onBody;
    std::function<void()> onAccess;
    int deliveries = 0;
    DWORD length = 77;
    char last = 'x';

private:
    void Accessed() const
    {
        if (onAccess)
        {
            onAccess();
        }
    }

    INTERNET_PORT m_port;
};
} // namespace

TEST_CASE("CHTTPRequest: a NUL that is not counted stands behind the body", "[connection]")
{
    const auto [object, size] = GENERATE(table<std::string, DWORD>({{"/empty", 0},
                                                                    {"/body-1", 1},
                                                                    {"/body-8191", 8191},
                                                                    {"/body-8192", 8192},
                                                                    {"/body-8193", 8193}}));
    CAPTURE(object);
    CallLog log;
    LoggingSink sink(log);
    LookingRequest request(real_servers::HttpPort());
    request.object = object;
    CHECK(CHTTPRequest<LookingRequest>(&sink).Execute(request));
    CHECK(request.deliveries == 1);
    CHECK(request.length == size);
    CHECK(request.last == '\0');
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CHTTPRequest: version, verb and object are the request's", "[connection]")
{
    const auto [version, verb, object] =
        GENERATE(table<std::string, std::string, std::string>({{"HTTP/1.1", "GET", "/"},
                                                               {"HTTP/1.0", "GET", "/page"},
                                                               {"HTTP/1.1", "HEAD", "/page"},
                                                               {"HTTP/1.1", "VELT", "/x?y"}}));
    const HttpServer server(HttpAnswer("200 OK", verb == "HEAD" ? "" : "ok"));
    CallLog log;
    LoggingSink sink(log);
    LookingRequest request(server.Port());
    request.version = version;
    request.verb = verb;
    request.object = object;
    CHECK(CHTTPRequest<LookingRequest>(&sink).Execute(request));
    REQUIRE(server.Requests().size() == 1);
    CHECK(Head(server.Requests()[0]).line == verb + " " + object + " " + version);
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CHTTPRequest: without a sink the exchange is abandoned when a handle is created",
          "[connection]")
{
    const HttpServer server(HttpAnswer("200 OK", "ok"));
    LookingRequest request(server.Port());
    CHTTPRequest<LookingRequest> exchange(nullptr);
    CHECK(exchange.GetEvent() == nullptr);
    CHECK_FALSE(exchange.Execute(request));
    CHECK(request.deliveries == 0);
    CHECK(server.Requests().empty());
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CHTTPRequest: one object runs exchange after exchange", "[connection]")
{
    CallLog log;
    LoggingSink sink(log);
    LookingRequest request(real_servers::HttpPort());
    CHTTPRequest<LookingRequest> exchange(&sink);
    CHECK(exchange.GetEvent() == &sink);
    request.object = "/body-1";
    CHECK(exchange.Execute(request));
    request.object = "/nothing/here";
    CHECK(exchange.Execute(request)); // it went through, with an answer
    request.object = "/body-8192";
    CHECK(exchange.Execute(request));
    CHECK(request.deliveries == 2);
    CHECK(log.Count("error 404") == 1);
    CHECK(log.Count("complete") == 3);
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CHTTPRequest: what the request throws ends the exchange, and is traced unless it is a "
          "lack of memory",
          "[connection]")
{
    CallLog log;
    LoggingSink sink(log);
    LookingRequest request(real_servers::HttpPort());
    request.object = "/body-1";
    CHTTPRequest<LookingRequest> exchange(&sink);
    TraceRecorder trace;
    const std::string where = GENERATE("accessor", "body");
    CAPTURE(where);
    const auto throwing = [&](std::function<void()> what) {
        (where == "body" ? request.onBody : request.onAccess) = std::move(what);
    };
    SECTION("no memory")
    {
        throwing([] { throw std::bad_alloc(); });
        CHECK_FALSE(exchange.Execute(request));
        CHECK(log.Count("error " + std::to_string(ERROR_NOT_ENOUGH_MEMORY)) == 1);
        CHECK(trace.Messages().empty());
    }
    SECTION("an exception")
    {
        throwing([] { throw std::runtime_error("of the request"); });
        CHECK_FALSE(exchange.Execute(request));
        CHECK(log.Count("error " + std::to_string(ERROR_INTERNET_INTERNAL_ERROR)) == 1);
        CHECK(trace.Count("failed: 0x8000FFFF of the request") == 1);
    }
    SECTION("something else")
    {
        throwing([] { throw 5; });
        CHECK_FALSE(exchange.Execute(request));
        CHECK(log.Count("error " + std::to_string(ERROR_INTERNET_INTERNAL_ERROR)) == 1);
        CHECK(trace.Count("failed: 0x8000FFFF unknown exception") == 1);
    }
    CHECK(log.Count("complete") == 1);
    CHECK(OpenHandles() == 0);
    throwing(nullptr);
    CHECK(exchange.Execute(request));
    CHECK(log.Count("complete") == 2);
}

TEST_CASE("CHTTPRequest: what a sink throws is traced, and the exchange and its queue go on",
          "[connection]")
{
    const auto [call, object, outcome] = GENERATE(
        table<std::string, std::string, Calls>({{"OnError", "/nothing/here", Failed(404)},
                                                {"OnComplete", "/body-1", kWentThrough},
                                                {"OnComplete", "/nothing/here", Failed(404)},
                                                {"OnStatus", "/body-1", kWentThrough},
                                                {"OnStatus", "/nothing/here", Failed(404)}}));
    CAPTURE(call, object);
    TraceRecorder trace;
    RequestQueue queue;
    {
        Fetch fetch(RealPage(object));
        if (call == "OnError")
        {
            fetch.sink.onError = [](DWORD) { throw std::runtime_error("of the sink"); };
        }
        else if (call == "OnComplete")
        {
            fetch.sink.onComplete = [] { throw std::runtime_error("of the sink"); };
        }
        else
        {
            fetch.sink.onStatus = [](DWORD, DWORD_PTR) -> bool {
                throw std::runtime_error("of the sink");
            };
        }
        queue.Run(fetch);
        CHECK(fetch.Outcome() == outcome);
        CHECK(fetch.request->GetBody().has_value() == (object == "/body-1"));
        CHECK(trace.Count("failed: 0x8000FFFF of the sink") ==
              (call == "OnStatus" ? fetch.log.All().size() - fetch.Outcome().size() : 1));
    }
    CheckNothingIsLeft(queue);
    queue.End(); // nobody traces any more
}

TEST_CASE("CHTTPRequest: a sink that throws when it hears of a failure does not stop the queue",
          "[connection]")
{
    const RefusingPort port;
    RequestQueue queue;
    Fetch fetch(UrlOptions(port.Port()));
    fetch.sink.onError = [](DWORD) { throw std::runtime_error("of the sink"); };
    queue.Run(fetch);
    CHECK(fetch.Outcome() == Failed(ERROR_INTERNET_CANNOT_CONNECT));
    CheckNothingIsLeft(queue);
}

TEST_CASE("CHTTPRequest: the request is asked once for each thing, before anything is opened",
          "[connection]")
{
    const HttpServer server([](HttpExchange& exchange) {
        exchange.Send(exchange.Number() < 2 ? HttpAnswer("401 No", "", "Connection: close\r\n")
                                            : HttpAnswer("200 OK", "third"));
    });
    CallLog log;
    LoggingSink sink(log);
    LookingRequest request(server.Port());
    int asked = 0;
    request.onAccess = [&] {
        ++asked;
        CHECK(OpenHandles() == 0);
    };
    CHECK(CHTTPRequest<LookingRequest>(&sink).Execute(request));
    CHECK(server.Requests().size() == 3);
    CHECK(request.deliveries == 1);
    CHECK(request.length == 5);
    CHECK(asked == 11);
}
