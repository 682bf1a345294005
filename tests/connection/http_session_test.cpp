#include "connection/http_session.h"

#include "connection/http_request.h"
#include "tests/connection/request_queue.h"
#include "tests/support/http_server.h"
#include "tests/support/real_servers.h"
#include "tests/support/virtual_slot.h"

#include <catch.hpp>

#include <string>
#include <utility>
#include <vector>

using namespace velt::test;
using CONNECTION_MANAGER::queue_request;
using Calls = CallLog::Calls;
using Session = CHTTPSession<queue_request>;
using Request = CHTTPRequest<queue_request>;

namespace
{
constexpr DWORD kEveryBit = 0xFFFFFFFF;

/// A session with a sink, not used for an exchange.
struct Told
{
    Told()
    {
        sink.onStatus = [this](DWORD, DWORD_PTR given) {
            value = given;
            return answer;
        };
    }

    CallLog log;
    LoggingSink sink{log};
    Request request{&sink};
    Session session{&request, INTERNET_OPEN_TYPE_DIRECT, nullptr};
    bool answer = false;
    DWORD_PTR value = 77;
};

bool MayAbandonAt(DWORD status)
{
    return status == INTERNET_STATUS_RECEIVING_RESPONSE ||
           status == INTERNET_STATUS_RESPONSE_RECEIVED || status == INTERNET_STATUS_HANDLE_CREATED;
}
} // namespace

TEST_CASE("CHTTPSession: statuses reach the sink with the session's value", "[connection]")
{
    const DWORD status =
        GENERATE(values<DWORD>({10, 11, 20, 21, 30,  31,  40,  41,  42,  43, 50,   51,
                                60, 70, 80, 90, 100, 110, 120, 140, 200, 0,  12345}));
    Told told;
    told.session.OnStatusCallback(1, status, &told, 4);
    CHECK(told.log.All() == Calls{"status " + std::to_string(status)});
    CHECK(told.value == 0);
    CHECK(told.session.GetHandle() != nullptr);
}

TEST_CASE("CHTTPSession: a status of all bits hands its information on", "[connection]")
{
    Told told;
    told.session.OnStatusCallback(1, kEveryBit, &told, 0);
    CHECK(told.log.All() == Calls{"status 4294967295"});
    CHECK(told.value == reinterpret_cast<DWORD_PTR>(&told));
}

TEST_CASE("CHTTPSession: a yes closes the session at 40, 41 and 60 only", "[connection]")
{
    const DWORD status = GENERATE(values<DWORD>(
        {10, 11, 20, 21, 30, 31, 40, 41, 42, 43, 50, 51, 60, 70, 80, 90, 100, 110, 123}));
    CAPTURE(status);
    Told told;
    told.answer = true;
    told.session.OnStatusCallback(1, status, nullptr, 0);
    CHECK((told.session.GetHandle() == nullptr) == MayAbandonAt(status));
    CHECK(OpenHandles() == (MayAbandonAt(status) ? 0 : 1));
}

TEST_CASE("CHTTPSession: a completed operation's error is an error, and nothing else",
          "[connection]")
{
    Told told;
    told.answer = true;
    INTERNET_ASYNC_RESULT result{};
    SECTION("an error")
    {
        result.dwError = ERROR_INTERNET_TIMEOUT;
        told.session.OnStatusCallback(1, INTERNET_STATUS_REQUEST_COMPLETE, &result, sizeof(result));
        CHECK(told.log.All() == Calls{"error 12002"});
    }
    SECTION("none")
    {
        told.session.OnStatusCallback(1, INTERNET_STATUS_REQUEST_COMPLETE, &result, sizeof(result));
        CHECK(told.log.All() == Calls{"status 100"});
        CHECK(told.value == 0);
    }
    SECTION("no result at all")
    {
        told.session.OnStatusCallback(1, INTERNET_STATUS_REQUEST_COMPLETE, nullptr, 0);
        CHECK(told.log.All() == Calls{"status 100"});
    }
    CHECK(told.session.GetHandle() != nullptr);
}

TEST_CASE("CHTTPSession: without an owner nothing happens, without a sink it closes",
          "[connection]")
{
    SECTION("no owner")
    {
        Session session(nullptr, INTERNET_OPEN_TYPE_DIRECT, nullptr);
        session.OnStatusCallback(1, INTERNET_STATUS_HANDLE_CREATED, nullptr, 0);
        CHECK(session.GetHandle() != nullptr);
    }
    SECTION("no sink")
    {
        const DWORD status = GENERATE(values<DWORD>({40, 41, 60, 20, 70}));
        Request request(nullptr);
        Session session(&request, INTERNET_OPEN_TYPE_DIRECT, nullptr);
        INTERNET_ASYNC_RESULT result{0, ERROR_INTERNET_TIMEOUT};
        session.OnStatusCallback(1, INTERNET_STATUS_REQUEST_COMPLETE, &result, sizeof(result));
        CHECK(session.GetHandle() != nullptr);
        session.OnStatusCallback(1, status, nullptr, 0);
        CHECK((session.GetHandle() == nullptr) == MayAbandonAt(status));
    }
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CHTTPSession: its context is 1", "[connection]")
{
    const Session session(nullptr, INTERNET_OPEN_TYPE_DIRECT, nullptr);
    CHECK(session.GetContext() == 1);
}

TEST_CASE("CHTTPSession: the sink hears an exchange in its order", "[connection]")
{
    const HttpServer server(HttpAnswer("200 OK", "ok"));
    RequestQueue queue;
    const Fetch fetch(UrlOptions(server.Port()));
    queue.Run(fetch);
    Calls calls = fetch.log.All();
    // The connection and the request; the address; the way there and back; the request is closed
    // before the sink hears of the end, the connection after it.
    const Calls front = {"status 60", "status 60", "status 10", "status 11", "status 20",
                         "status 21", "status 30", "status 31", "status 40", "status 41"};
    const Calls back = {"status 70", "complete", "status 70", "done"};
    REQUIRE(calls.size() >= front.size() + back.size());
    CHECK(std::equal(front.begin(), front.end(), calls.begin()));
    CHECK(std::equal(back.rbegin(), back.rend(), calls.rbegin()));
}

TEST_CASE("CHTTPSession: the sink may abandon an exchange at 40, 41 and 60, and nowhere else",
          "[connection]")
{
    RequestQueue queue;
    for (DWORD status = 10; status <= 110; ++status)
    {
        if (status % 10 > 3)
        {
            continue; // there are none
        }
        CAPTURE(status);
        const HttpServer server(HttpAnswer("200 OK", "body")); // so that each status comes
        Fetch fetch(UrlOptions(server.Port()));
        fetch.sink.onStatus = [=](DWORD reported, DWORD_PTR) { return reported == status; };
        queue.Run(fetch);
        const Calls outcome = fetch.Outcome();
        CAPTURE(outcome);
        CHECK(outcome.back() == "done");
        CHECK(fetch.log.Count("complete") == 1);
        CHECK(fetch.log.Count("done") == 1);
        if (MayAbandonAt(status))
        {
            CHECK(fetch.log.Count("status " + std::to_string(status)) > 0);
            REQUIRE(outcome.size() == 3);
            CHECK(outcome[0].starts_with("error "));
            CHECK(outcome[0] != "error 0");
            CHECK_FALSE(fetch.request->GetBody().has_value());
        }
        else
        {
            CHECK(outcome == Calls{"complete", "done"});
            CHECK(fetch.request->GetBody() == "body");
        }
        CHECK(OpenHandles() == 0);
    }
}

TEST_CASE("CHTTPSession: a sink that always says yes is heard once", "[connection]")
{
    const HttpServer server(HttpAnswer("200 OK", "body"));
    RequestQueue queue;
    Fetch fetch(UrlOptions(server.Port()));
    fetch.sink.onStatus = [](DWORD, DWORD_PTR) { return true; };
    queue.Run(fetch);
    CHECK(fetch.log.Count("status 60") == 1);
    CHECK(fetch.log.Count("complete") == 1);
    CHECK(server.Requests().empty());
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CHTTPSession: a sink that throws does not reach the system", "[connection]")
{
    const HttpServer server(HttpAnswer("200 OK", "body"));
    RequestQueue queue;
    Fetch fetch(UrlOptions(server.Port()));
    fetch.sink.onStatus = [](DWORD, DWORD_PTR) -> bool { throw 5; };
    queue.Run(fetch);
    CHECK(fetch.Outcome() == Calls{"complete", "done"});
    CHECK(fetch.request->GetBody() == "body");
}

TEST_CASE("CHTTPEvent: the operations stand in the slots that they always had", "[connection]")
{
    CHECK(VirtualSlot(&CHTTPEvent::OnError) == 0);
    CHECK(VirtualSlot(&CHTTPEvent::OnComplete) == 1);
    CHECK(VirtualSlot(&CHTTPEvent::OnStatus) == 2);
}
