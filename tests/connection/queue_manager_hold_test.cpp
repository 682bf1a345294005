#include "connection/queue_manager.h"

#include "tests/connection/periods.h"
#include "tests/support/logging_notifier.h"
#include "tests/support/logging_request.h"
#include "tests/support/stopwatch.h"
#include "tests/support/test_thread.h"
#include "tests/support/trace_recorder.h"

#include <catch.hpp>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

using namespace velt::test;
using CONNECTION_MANAGER::queue_manager;
using Calls = CallLog::Calls;

namespace
{
constexpr ULONGLONG kHoldSleepMs = 100;

/// A queue in hold-and-retry processing, begun and armed, whose ticks are the test's own.
struct HeldQueue
{
    explicit HeldQueue(DWORD periodMs = kNeverMs)
    {
        manager->SetHoldMode(true);
        REQUIRE(manager->begin(periodMs) == S_OK);
        manager->OnTimer();
        manager->AddNotifier(&notifier);
    }

    std::shared_ptr<LoggingRequest> Add(const std::string& name, const std::vector<DWORD>& results)
    {
        const auto request = std::make_shared<LoggingRequest>(log, name, results);
        manager->add(request);
        return request;
    }

    CallLog log;
    LoggingNotifier notifier{log, "queue"};
    std::unique_ptr<queue_manager> manager = std::make_unique<queue_manager>();
};
} // namespace

TEST_CASE("queue_manager: Hold sleeps 100 ms either way", "[connection]")
{
    queue_manager manager;
    CHECK(MillisecondsOf([&] { manager.Hold(false, 0); }) + 20 >= kHoldSleepMs);
    CHECK(MillisecondsOf([&] { manager.Hold(true, 7); }) + 20 >= kHoldSleepMs);
    CHECK(MillisecondsOf([&] { manager.Hold(true, 7); }) + 20 >= kHoldSleepMs);
    CHECK(MillisecondsOf([&] { manager.Hold(false, 7); }) + 20 >= kHoldSleepMs);
}

TEST_CASE("queue_manager: plain processing knows no hold", "[connection]")
{
    CallLog log;
    queue_manager manager;
    manager.Hold(true, INFINITE);
    manager.add(std::make_shared<LoggingRequest>(log, "a"));
    REQUIRE(manager.begin(kPeriodMs) == S_OK);
    log.WaitFor("gone a");
}

TEST_CASE("queue_manager: hold and retry walks the queue once, with two steps for each",
          "[connection]")
{
    HeldQueue queue;
    queue.Add("a", {2, 2, 1, 3});
    queue.Add("b", {0, 3});
    queue.Add("c", {3});
    queue.Add("d", {3})->cancelled = true;
    queue.Add("e", {2, 2, 2, 2, 3});
    const std::size_t added = queue.log.All().size();
    queue.manager->OnTimer();
    Calls calls = queue.log.All();
    calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(added));
    CHECK(calls == Calls{"step a", "step a",                                         //
                         "step b", "step b", "complete b", "queue filled", "gone b", //
                         "step c", "complete c", "queue filled", "gone c",           //
                         "complete d", "queue filled", "gone d",                     // no step
                         "step e", "step e",                                         //
                         "queue filled"});                                           // the tick
    queue.manager->OnTimer();
    CHECK(queue.log.Count("gone a") == 1);
    CHECK(queue.log.Count("complete e") == 0);
    queue.manager->OnTimer();
    CHECK(queue.log.Count("complete e") == 1);
    CHECK(queue.log.All().back() == "queue empty");
}

TEST_CASE("queue_manager: hold and retry pauses 10 ms after each request", "[connection]")
{
    HeldQueue queue;
    for (int i = 0; i < 5; ++i)
    {
        queue.Add("a", {2});
    }
    CHECK(MillisecondsOf([&] { queue.manager->OnTimer(); }) >= 40);
    CHECK(queue.log.Count("step a") == 10);
}

TEST_CASE("queue_manager: hold and retry keeps the mutex", "[connection]")
{
    HeldQueue queue(kPeriodMs);
    auto first = std::make_shared<LoggingRequest>(queue.log, "a");
    TestEvent inside;
    TestEvent tried;
    first->onStep = [&] {
        inside.Set();
        tried.Wait();
        ::Sleep(50); // time enough for an addition that does not wait
        queue.log.Add("step ends");
    };
    queue.manager->add(first);
    first.reset();
    TestThread other([&] {
        inside.Wait();
        tried.Set();
        queue.Add("b", {3});
        queue.log.Add("added");
    });
    other.Join();
    queue.log.WaitFor("gone b");
    const Calls calls = queue.log.All();
    const auto at = [&](const std::string& call) {
        return std::find(calls.begin(), calls.end(), call) - calls.begin();
    };
    CHECK(at("step ends") < at("added"));
    CHECK(at("complete a") < at("added"));
}

TEST_CASE("queue_manager: a hold keeps hold and retry back until it is lifted", "[connection]")
{
    HeldQueue queue(kPeriodMs);
    queue.manager->Hold(true, kNeverMs);
    queue.Add("a", {3});
    ::Sleep(5 * kPeriodMs); // ticks that must not step
    CHECK(queue.log.Count("step a") == 0);
    queue.manager->Hold(false, 0);
    queue.log.WaitFor("gone a");

    queue.Add("b", {3}); // the hold was for once
    queue.log.WaitFor("gone b");
}

TEST_CASE("queue_manager: a hold ends by its time-out", "[connection]")
{
    HeldQueue queue; // the test's own ticks: nobody else waits for the hold
    queue.manager->Hold(true, 250);
    queue.manager->Hold(true, kNeverMs); // one hold at a time; the first one's time-out stays
    queue.Add("a", {3});
    const ULONGLONG took = MillisecondsOf([&] { queue.manager->OnTimer(); });
    CHECK(took + 20 >= 250);
    CHECK(took < kWaitLimitMs);
    CHECK(queue.log.Count("gone a") == 1);
}

TEST_CASE("queue_manager: a hold that was lifted before its tick holds nothing", "[connection]")
{
    HeldQueue queue;
    queue.manager->Hold(true, kNeverMs);
    queue.manager->Hold(false, 0);
    queue.Add("a", {3});
    CHECK(MillisecondsOf([&] { queue.manager->OnTimer(); }) < kWaitLimitMs);
    CHECK(queue.log.Count("gone a") == 1);
}

TEST_CASE("queue_manager: a stop signal ends hold and retry between two requests", "[connection]")
{
    TraceRecorder trace;
    HeldQueue queue;
    queue.Add("a", {2})->onStep = [&] { queue.manager->SignalStop(); };
    queue.Add("b", {3});
    queue.manager->OnTimer();
    CHECK(queue.log.Count("step a") == 2);
    CHECK(queue.log.Count("step b") == 0);
    CHECK(queue.log.Count("gone b") == 0);
    CHECK(trace.Count("queue_manager::process - CANCELLED") == 1);
    queue.manager->OnTimer();
    CHECK(queue.log.Count("step a") == 2); // not even begun
    queue.manager.reset();
    CHECK(queue.log.Count("gone a") == 1);
    CHECK(queue.log.Count("gone b") == 1);
}

TEST_CASE("queue_manager: a stop before hold and retry leaves the queue alone", "[connection]")
{
    HeldQueue queue;
    queue.manager->Hold(true, kNeverMs);
    queue.Add("a", {3});
    queue.manager->stop();
    CHECK(MillisecondsOf([&] { queue.manager->OnTimer(); }) < kWaitLimitMs); // no wait for the hold
    CHECK(queue.log.Count("step a") == 0);
}
