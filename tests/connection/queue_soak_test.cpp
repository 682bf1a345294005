#include "connection/queue_manager.h"

#include "tests/connection/grace_watch.h"
#include "tests/connection/request_queue.h"
#include "tests/support/debuggee.h"
#include "tests/support/http_server.h"
#include "tests/support/process_usage.h"
#include "tests/support/real_servers.h"
#include "tests/support/stopwatch.h"

#include <catch.hpp>

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

using namespace velt::test;
using CONNECTION_MANAGER::queue_manager;
using Calls = CallLog::Calls;

namespace
{
constexpr char kSilence[] = "child: a queue that ends while its server is silent";
} // namespace

TEST_CASE("queue_manager: 1,000 requests to a real server complete with their bodies",
          "[connection]")
{
    constexpr std::size_t kCount = 1000;
    const struct
    {
        const char* object;
        std::size_t size;
    } pages[] = {{"/body-8193", 8193}, {"/body-1", 1}, {"/empty", 0}, {"/body-8192", 8192}};
    RequestQueue queue;
    std::deque<Fetch> fetches;
    for (std::size_t i = 0; i < kCount; ++i)
    {
        const auto options = UrlOptions(real_servers::HttpPort(), pages[i % 4].object);
        queue.Manager().add(fetches.emplace_back(options).request);
    }
    std::size_t correct = 0;
    for (std::size_t i = 0; i < kCount; ++i)
    {
        fetches[i].Wait();
        const auto& body = fetches[i].request->GetBody();
        correct += fetches[i].Outcome() == Calls{"complete", "done"} && body &&
                   *body == real_servers::LargeBytes(0, pages[i % 4].size);
    }
    CHECK(correct == kCount);
    CHECK(OpenHandles() == 0);
}

TEST_CASE("queue_manager: 200 lives that end at any moment of an exchange", "[connection]")
{
    constexpr int kLives = 200;
    const GraceWatch grace; // outlives the server's threads, which wait as well
    const HttpServer slow([](HttpExchange& exchange) {
        exchange.Send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n01234");
        ::Sleep(5);
        exchange.Send("56789");
    });
    std::uint32_t random = 19990713;
    const auto next = [&](std::uint32_t end) {
        random = random * 1664525 + 1013904223;
        return (random >> 16) % end;
    };
    std::deque<Fetch> fetches; // all sinks live on, to hear what comes too late
    std::size_t heard = 0;
    const auto calls = [&] {
        std::size_t count = 0;
        for (const Fetch& fetch : fetches)
        {
            count += fetch.log.All().size();
        }
        return count;
    };
    for (int life = 0; life < kLives; ++life)
    {
        RequestQueue queue;
        for (const char* const object : {"/body-8193", "/nothing/here", "/moved"})
        {
            queue.Manager().add(
                fetches.emplace_back(UrlOptions(real_servers::HttpPort(), object)).request);
            queue.Manager().add(fetches.emplace_back(UrlOptions(slow.Port())).request);
        }
        ::Sleep(next(40));
        queue.End();
        REQUIRE(grace.inVain == 0); // each answer comes
        REQUIRE(OpenHandles() == 0);
        if (life % 20 == 19)
        {
            heard = calls();
            ::Sleep(20); // for what must not come
            REQUIRE(calls() == heard);
        }
    }
    for (const Fetch& fetch : fetches)
    {
        REQUIRE(fetch.request.use_count() == 1); // let go of
        REQUIRE(fetch.log.Count("complete") <= 1);
        REQUIRE(fetch.log.Count("done") == fetch.log.Count("complete"));
    }
    CHECK(AreHeapsValid());
}

TEST_CASE("child: a queue that ends while its server is silent", "[.child]")
{
    TestEvent asked;
    TestEvent answer;
    HttpServer server([&](HttpExchange&) {
        asked.Set();
        answer.Wait();
    });
    Fetch fetch(UrlOptions(server.Port()));
    Fetch behind(UrlOptions(server.Port()));
    RequestQueue queue;
    queue.Manager().add(fetch.request);
    queue.Manager().add(behind.request);
    asked.Wait();
    CHECK(MillisecondsOf([&] { queue.End(); }) >= 4900); // the server's silence has no end
    const Calls calls = fetch.log.All();
    answer.Set();
    ::Sleep(200); // for what must not come
    CHECK(fetch.log.All() == calls);
    CHECK(fetch.log.Count("complete") == 0);
    CHECK(behind.log.All().empty());

    // The process goes on as if nothing had been.
    HttpServer other(HttpAnswer("200 OK", "ok"));
    RequestQueue second;
    const Fetch next(UrlOptions(other.Port()));
    second.Run(next);
    CHECK(next.request->GetBody() == "ok");
}

TEST_CASE("queue_manager: a server's silence ends with the manager, after 5 s", "[connection]")
{
    CHECK(RunInChild(kSilence) == 0); // a thread ended by force leaves its memory behind
}
