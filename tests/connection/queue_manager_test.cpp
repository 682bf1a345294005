#include "connection/queue_manager.h"

#include "tests/connection/periods.h"
#include "tests/support/import_patch.h"
#include "tests/support/logging_notifier.h"
#include "tests/support/logging_request.h"
#include "tests/support/process_usage.h"
#include "tests/support/test_thread.h"
#include "tests/support/thread_group.h"
#include "tests/support/trace_recorder.h"
#include "tests/support/virtual_slot.h"

#include <catch.hpp>

#include <algorithm>
#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace velt::test;
using CONNECTION_MANAGER::connection_object;
using CONNECTION_MANAGER::queue_manager;
using CONNECTION_MANAGER::queue_request;
using Calls = CallLog::Calls;

namespace
{
using MutexPatch = ImportPatch<"CreateMutexW", decltype(::CreateMutexW)>;
using ReleasePatch = ImportPatch<"ReleaseMutex", decltype(::ReleaseMutex)>;
using SleepPatch = ImportPatch<"Sleep", decltype(::Sleep)>;
using WaitPatch = ImportPatch<"WaitForSingleObject", decltype(::WaitForSingleObject)>;

/// A queue whose notifier logs as "queue".
struct Queue
{
    Queue()
    {
        manager->AddNotifier(&notifier);
    }

    std::shared_ptr<LoggingRequest> Add(const std::string& name,
                                        const std::vector<DWORD>& results = {3})
    {
        const auto request = std::make_shared<LoggingRequest>(log, name, results);
        manager->add(request);
        return request;
    }

    CallLog log;
    LoggingNotifier notifier{log, "queue"};
    std::unique_ptr<queue_manager> manager = std::make_unique<queue_manager>();
};

/// The timer of a queue that begins meanwhile expires when the test says.
class OwnExpiry
{
public:
    /// Once.
    void Expire()
    {
        m_set.Wait();
        const LARGE_INTEGER now{};
        if (!Patch::Original(m_timer, &now, 0, nullptr, nullptr, FALSE))
        {
            throw std::runtime_error("the timer cannot be set");
        }
    }

private:
    using Patch = ImportPatch<"SetWaitableTimer", decltype(::SetWaitableTimer)>;

    HANDLE m_timer = nullptr; // written before m_set
    TestEvent m_set;
    Patch m_patch{"kernel32.dll", [this](HANDLE timer, auto... arguments) -> WINBOOL {
                      const WINBOOL set = Patch::Original(timer, arguments...);
                      m_timer = timer;
                      m_set.Set();
                      return set;
                  }};
};
} // namespace

TEST_CASE("queue_manager: begin works once", "[connection]")
{
    TraceRecorder trace;
    queue_manager manager;
    CHECK_FALSE(manager.IsRunning());
    CHECK(manager.begin(kNeverMs) == S_OK);
    CHECK(manager.IsRunning());
    CHECK(manager.begin(kNeverMs) == E_FAIL);
    CHECK(manager.begin(kPeriodMs) == E_FAIL);
    CHECK(manager.IsRunning());
    CHECK(trace.Count("queue_manager::begin - enter") == 3);
    CHECK(trace.Count("queue_manager::begin - return = 0") == 1);
    CHECK(trace.Count("queue_manager::begin - return = -2147467259") == 2);
}

TEST_CASE("queue_manager: a tick of the caller's own arms it for the first expiry", "[connection]")
{
    OwnExpiry timer;
    Queue queue;
    REQUIRE(queue.manager->begin(kNeverMs) == S_OK);
    queue.manager->OnTimer();
    queue.Add("a");
    timer.Expire();
    queue.log.WaitFor("queue empty", 3);
    CHECK(queue.log.All() == Calls{"queue empty",                                   // own tick
                                   "queue filled",                                  // added
                                   "step a", "complete a", "queue empty", "gone a", // removed
                                   "queue empty"});                                 // tick
}

TEST_CASE("queue_manager: without such a tick the second expiry is the first to step",
          "[connection]")
{
    Queue queue;
    queue.Add("a");
    REQUIRE(queue.manager->begin(kPeriodMs) == S_OK);
    queue.log.WaitFor("queue empty", 2);
    const Calls calls = queue.log.Until("gone a");
    CHECK(calls == Calls{"queue filled", "queue filled", // added, and the tick that arms
                         "step a", "complete a", "queue empty", "gone a"});
}

TEST_CASE("queue_manager: one under way does not block those behind it", "[connection]")
{
    Queue queue;
    queue.Add("a", {2});
    queue.Add("b", {3});
    REQUIRE(queue.manager->begin(kPeriodMs) == S_OK);
    queue.log.WaitFor("gone b");
    CHECK(queue.log.Until("gone b") == Calls{"queue filled", "queue filled", "queue filled",
                                             "step a", "step b", "complete b", "queue filled",
                                             "gone b"});
    queue.log.WaitFor("step a", 5);
    queue.manager.reset();
    CHECK(queue.log.Count("complete a") == 0);
    CHECK(queue.log.Count("gone a") == 1);
    CHECK(queue.log.Count("step b") == 1);
}

TEST_CASE("queue_manager: results up to 2 are under way, greater ones have finished",
          "[connection]")
{
    const auto [result, isFinished] = GENERATE(table<DWORD, bool>({{0, false},
                                                                   {1, false},
                                                                   {2, false},
                                                                   {3, true},
                                                                   {4, true},
                                                                   {0x7FFFFFFF, true},
                                                                   {0x80000000, true},
                                                                   {0xFFFFFFFF, true}}));
    CAPTURE(result);
    Queue queue;
    queue.Add("a", {result, 3});
    queue.manager->OnTimer();
    REQUIRE(queue.manager->begin(kPeriodMs) == S_OK);
    queue.log.WaitFor("gone a");
    CHECK(queue.log.Count("step a") == (isFinished ? 1 : 2));
    CHECK(queue.log.Count("complete a") == 1);
    CHECK(queue.manager->GetConnectionState() == (isFinished ? result : 3));
}

TEST_CASE("queue_manager: one tick serves all that are ready, from the front each time",
          "[connection]")
{
    Queue queue;
    queue.Add("a", {2, 0, 1, 3});
    queue.Add("b");
    queue.Add("c");
    REQUIRE(queue.manager->begin(kPeriodMs) == S_OK);
    queue.log.WaitFor("gone a");
    Calls calls = queue.log.Until("gone a");
    calls.erase(calls.begin(), calls.begin() + 4); // added, and the tick that arms
    CHECK(calls == Calls{"step a", "step b", "complete b", "queue filled", "gone b", //
                         "step a", "step c", "complete c", "queue filled", "gone c", //
                         "step a", "queue filled", // the tick ends
                         "step a", "complete a", "queue empty", "gone a"});
}

TEST_CASE("queue_manager: a step gets the connection, the probe hosts and leave to connect",
          "[connection]")
{
    Queue queue;
    const auto first = queue.Add("a");
    const auto second = queue.Add("b");
    first->onComplete = [](DWORD* value) { *value += 6; };
    REQUIRE(queue.manager->begin(kPeriodMs) == S_OK);
    queue.log.WaitFor("complete b");
    queue.manager.reset();
    CHECK(first->mayConnect);
    CHECK(first->hosts ==
          std::vector<std::string>{"www.wikipedia.org", "www.w3.org", "www.velt.example"});
    CHECK(second->hosts == first->hosts);
    CHECK(first->connection != nullptr);
    CHECK(second->connection == first->connection);
    CHECK(first->completedConnection == first->connection);
    CHECK(second->completionValue == first->completionValue);
}

TEST_CASE("queue_manager: the connection carries the properties of an exchange", "[connection]")
{
    Queue queue;
    const auto request = std::make_shared<LoggingRequest>(queue.log, "a");
    std::string version;
    std::string verb;
    request->onStep = [&] {
        version = request->connection->Data().httpVersion;
        verb = request->connection->Data().verb;
    };
    queue.manager->add(request);
    queue.manager->OnTimer();
    REQUIRE(queue.manager->begin(kPeriodMs) == S_OK);
    queue.log.WaitFor("complete a");
    queue.manager.reset();
    CHECK(version == "HTTP/1.1");
    CHECK(verb == "GET");
}

TEST_CASE("queue_manager: the completion value is 1 until a completion changes it", "[connection]")
{
    Queue queue;
    std::vector<DWORD> values;
    for (const char* const name : {"a", "b", "c"})
    {
        const auto request = std::make_shared<LoggingRequest>(queue.log, name);
        request->onComplete = [&](DWORD* value) {
            values.push_back(*value);
            *value += values.size() == 2 ? 6U : 0U;
        };
        queue.manager->add(request);
    }
    REQUIRE(queue.manager->begin(kPeriodMs) == S_OK);
    queue.log.WaitFor("gone c");
    queue.manager.reset();
    CHECK(values == std::vector<DWORD>{1, 1, 7});
}

TEST_CASE("queue_manager: the connection state is 0 before any step, then the last result",
          "[connection]")
{
    Queue queue;
    CHECK(queue.manager->GetConnectionState() == 0);
    queue.Add("a", {2});
    CHECK(queue.manager->GetConnectionState() == 0);
    REQUIRE(queue.manager->begin(kPeriodMs) == S_OK);
    queue.log.WaitFor("step a", 2); // the first one is over
    CHECK(queue.manager->GetConnectionState() == 2);
    queue.manager->stop();
    CHECK(queue.manager->GetConnectionState() == 2);
}

TEST_CASE("queue_manager: notifiers hear of each change and each tick, in their order",
          "[connection]")
{
    CallLog log;
    LoggingNotifier notifiers[] = {{log, "first"}, {log, "second"}, {log, "third"}};
    queue_manager manager;
    manager.AddNotifier(&notifiers[2]); // their addresses say the order
    manager.AddNotifier(&notifiers[0]);
    manager.AddNotifier(&notifiers[1]);
    manager.AddNotifier(&notifiers[0]); // once is enough

    manager.NotifyState(true);
    CHECK(log.All() == Calls{"first empty", "second empty", "third empty"});
    manager.RemoveNotifier(&notifiers[1]);
    manager.RemoveNotifier(&notifiers[1]);
    manager.NotifyState(false);
    CHECK(log.All() == Calls{"first empty", "second empty", "third empty", //
                             "first filled", "third filled"});
    manager.OnTimer();
    CHECK(log.Count("first empty") == 2);
    CHECK(log.Count("second empty") == 1);
    CHECK(log.Count("third empty") == 2);
}

TEST_CASE("queue_manager: notifiers are called on the thread that changed the queue",
          "[connection]")
{
    OwnExpiry timer;
    Queue queue;
    std::atomic<DWORD> onFilled = 0;
    std::atomic<DWORD> onEmpty = 0;
    queue.notifier.onState = [&](bool empty) {
        (empty ? onEmpty : onFilled) = ::GetCurrentThreadId();
    };
    REQUIRE(queue.manager->begin(kNeverMs) == S_OK);
    queue.manager->OnTimer();
    onEmpty = 0;
    std::atomic<DWORD> stepper = 0;
    const auto request = std::make_shared<LoggingRequest>(queue.log, "a");
    request->onStep = [&] { stepper = ::GetCurrentThreadId(); };
    queue.manager->add(request);
    CHECK(onFilled == ::GetCurrentThreadId());
    timer.Expire();
    queue.log.WaitFor("queue empty", 2);
    queue.manager.reset();
    CHECK(onFilled == ::GetCurrentThreadId());
    CHECK(stepper != ::GetCurrentThreadId());
    CHECK(onEmpty == stepper);
}

TEST_CASE("queue_manager: add has told the notifiers when it returns", "[connection]")
{
    Queue queue;
    queue.Add("a");
    CHECK(queue.log.All() == Calls{"queue filled"});
}

TEST_CASE("queue_manager: others may add and ask while a step or a completion runs", "[connection]")
{
    Queue queue;
    const auto addElsewhere = [&](const std::string& name) {
        TestThread other([&] {
            queue.Add(name);
            queue.manager->GetConnectionState();
            queue.manager->AddNotifier(&queue.notifier);
        });
        other.Join(); // throws when the mutex is held
    };
    const auto request = std::make_shared<LoggingRequest>(queue.log, "a");
    request->onStep = [&] { addElsewhere("b"); };
    request->onComplete = [&](DWORD*) { addElsewhere("c"); };
    queue.manager->add(request);
    REQUIRE(queue.manager->begin(kPeriodMs) == S_OK);
    queue.log.WaitFor("gone c");
    CHECK(queue.log.Count("complete a") == 1);
    CHECK(queue.log.Count("complete b") == 1);
}

TEST_CASE("queue_manager: a request added from inside a step or a completion is worked as well",
          "[connection]")
{
    Queue queue;
    const auto request = std::make_shared<LoggingRequest>(queue.log, "a");
    request->onStep = [&] { queue.Add("b"); };
    request->onComplete = [&](DWORD*) { queue.Add("c"); };
    queue.manager->add(request);
    REQUIRE(queue.manager->begin(kPeriodMs) == S_OK);
    queue.log.WaitFor("gone c");
    Calls calls = queue.log.Until("gone c");
    calls.erase(calls.begin(), calls.begin() + 2);
    CHECK(calls == Calls{"step a", "queue filled", "complete a", "queue filled",
                         "queue filled", // a is gone
                         "step b", "complete b", "queue filled", "gone b", "step c", "complete c",
                         "queue empty", "gone c"});
}

TEST_CASE("queue_manager: a request may be added again by its completion", "[connection]")
{
    Queue queue;
    auto request = std::make_shared<LoggingRequest>(queue.log, "a");
    std::atomic<int> rounds = 0;
    request->onComplete = [&, self = std::weak_ptr<LoggingRequest>(request)](DWORD*) {
        if (++rounds < 3)
        {
            queue.manager->add(self.lock());
        }
    };
    queue.manager->add(request);
    request.reset();
    REQUIRE(queue.manager->begin(kPeriodMs) == S_OK);
    queue.log.WaitFor("gone a");
    CHECK(queue.log.Count("complete a") == 3);
    CHECK(queue.log.Count("gone a") == 1);
}

TEST_CASE("queue_manager: of a request that is queued twice, the place that has finished leaves",
          "[connection]")
{
    Queue queue;
    const auto twice = queue.Add("a", {2, 3});
    queue.Add("b", {2, 3});
    queue.manager->add(twice);
    REQUIRE(queue.manager->begin(kNeverMs) == S_OK);
    queue.manager->OnTimer(); // arms
    const std::size_t before = queue.log.All().size();
    queue.manager->OnTimer();
    Calls calls = queue.log.All();
    calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(before));
    CHECK(calls == Calls{"step a", "step b", "step a", "complete a", "queue filled", //
                         "step a", "complete a", "queue filled",                     // before b
                         "step b", "complete b", "queue empty", "gone b", "queue empty"});
}

TEST_CASE("queue_manager: a request that moves up while it is worked leaves all the same",
          "[connection]")
{
    Queue queue;
    queue.Add("a", {2, 3});
    const auto second = queue.Add("b", {2, 3});
    bool isFirst = true;
    second->onStep = [&] {
        if (std::exchange(isFirst, false))
        {
            queue.manager->OnTimer(); // takes the one in front out, and leaves this one
        }
    };
    REQUIRE(queue.manager->begin(kNeverMs) == S_OK);
    queue.manager->OnTimer(); // arms
    const std::size_t before = queue.log.All().size();
    queue.manager->OnTimer();
    Calls calls = queue.log.All();
    calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(before));
    CHECK(calls == Calls{"step a", "step b",                                         //
                         "step a", "complete a", "queue filled", "gone a", "step b", //
                         "queue filled",                                             //
                         "complete b", "queue empty", "queue empty"});
}

TEST_CASE("queue_manager: a request that has left while it completes takes no other with it",
          "[connection]")
{
    Queue queue;
    const auto first = queue.Add("a");
    queue.Add("b", {2, 2, 3});
    bool isFirst = true;
    first->onComplete = [&](DWORD*) {
        if (std::exchange(isFirst, false))
        {
            queue.manager->OnTimer(); // works this one once more, and takes it out
        }
    };
    REQUIRE(queue.manager->begin(kNeverMs) == S_OK);
    queue.manager->OnTimer(); // arms
    const std::size_t before = queue.log.All().size();
    queue.manager->OnTimer();
    Calls calls = queue.log.All();
    calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(before));
    CHECK(calls == Calls{"step a", "complete a",                           //
                         "step a", "complete a", "queue filled", "step b", //
                         "queue filled",                                   //
                         "step b", "queue filled"});
}

TEST_CASE("queue_manager: empty is what the queue was when the request left it", "[connection]")
{
    // Another thread adds as soon as the mutex is free.
    Queue queue;
    const DWORD ticker = ::GetCurrentThreadId();
    std::atomic<bool> isDue = false;
    const ReleasePatch releases("kernel32.dll", [&](HANDLE mutex) -> WINBOOL {
        const WINBOOL result = ReleasePatch::Original(mutex);
        if (::GetCurrentThreadId() == ticker && isDue.exchange(false))
        {
            TestThread other([&] { queue.Add("b"); });
            other.Join();
        }
        return result;
    });
    queue.Add("a")->onComplete = [&](DWORD*) { isDue = true; };
    REQUIRE(queue.manager->begin(kNeverMs) == S_OK);
    queue.manager->OnTimer(); // arms
    queue.manager->OnTimer();
    CHECK(queue.log.Until("gone a") == Calls{"queue filled", "queue filled", // added, and armed
                                             "step a", "complete a",
                                             "queue filled", // by the other thread
                                             "queue empty", "gone a"});
}

TEST_CASE("queue_manager: a finished request takes the mutex three times", "[connection]")
{
    // To be found, to leave its result, to be removed.
    HANDLE mutex = nullptr;
    std::atomic<int> locks = 0;
    const WaitPatch waits("kernel32.dll", [&](HANDLE object, DWORD limitMs) -> DWORD {
        locks += object == mutex ? 1 : 0;
        return WaitPatch::Original(object, limitMs);
    });
    CallLog log;
    LoggingNotifier notifier(log, "queue");
    std::unique_ptr<queue_manager> manager;
    {
        const MutexPatch mutexes("kernel32.dll", [&](auto... arguments) -> HANDLE {
            mutex = MutexPatch::Original(arguments...);
            return mutex;
        });
        manager = std::make_unique<queue_manager>();
        REQUIRE(mutexes.Calls() == 1);
    }
    manager->AddNotifier(&notifier);
    REQUIRE(manager->begin(kNeverMs) == S_OK);
    manager->OnTimer(); // arms
    const auto locksFor = [&](int requests) {
        for (int i = 0; i < requests; ++i)
        {
            manager->add(std::make_shared<LoggingRequest>(log, "a"));
        }
        locks = 0;
        manager->OnTimer();
        return locks.load();
    };
    const int forOne = locksFor(1);
    CHECK(forOne > 3);
    CHECK(locksFor(11) == forOne + 10 * 3);
    CHECK(log.Count("gone a") == 12);
}

TEST_CASE("queue_manager: notifiers hear of an addition with the mutex held, of a removal without",
          "[connection]")
{
    struct Opened : queue_manager
    {
        bool IsLocked()
        {
            return OnOtherThread([this] {
                const bool isFree = m_mutex->TryLock();
                if (isFree)
                {
                    m_mutex->Unlock();
                }
                return !isFree;
            });
        }
    };
    CallLog log;
    Opened manager;
    LoggingNotifier notifier(log, "queue");
    notifier.onState = [&](bool) { log.Add(manager.IsLocked() ? "locked" : "free"); };
    manager.AddNotifier(&notifier);
    manager.add(std::make_shared<LoggingRequest>(log, "a"));
    REQUIRE(manager.begin(kNeverMs) == S_OK);
    manager.OnTimer(); // arms
    manager.OnTimer();
    CHECK(log.All() == Calls{"queue filled", "locked", // added
                             "queue filled", "free",   // a tick
                             "step a", "complete a", "queue empty", "free", "gone a", "queue empty",
                             "free"});
}

TEST_CASE("queue_manager: a notifier that another one has removed hears nothing any more",
          "[connection]")
{
    CallLog log;
    LoggingNotifier notifiers[] = {{log, "first"}, {log, "second"}, {log, "third"}};
    queue_manager manager;
    for (LoggingNotifier& notifier : notifiers)
    {
        manager.AddNotifier(&notifier);
    }
    notifiers[0].onState = [&](bool) { manager.RemoveNotifier(&notifiers[1]); };
    manager.NotifyState(true);
    CHECK(log.All() == Calls{"first empty", "third empty"});
}

TEST_CASE("queue_manager: the worker polls every 10 ms", "[connection]")
{
    std::atomic<DWORD> worker = 0;
    std::atomic<DWORD> least = INFINITE;
    std::atomic<DWORD> most = 0;
    CallLog sleeps;
    const SleepPatch patch("kernel32.dll", [&](DWORD ms) {
        if (::GetCurrentThreadId() == worker)
        {
            least = std::min(least.load(), ms);
            most = std::max(most.load(), ms);
            sleeps.Add("sleep");
        }
        SleepPatch::Original(ms);
    });
    Queue queue;
    queue.Add("a")->onStep = [&] { worker = ::GetCurrentThreadId(); };
    REQUIRE(queue.manager->begin(1) == S_OK);
    sleeps.WaitFor("sleep", 20);
    queue.manager.reset();
    CHECK(least == 10);
    CHECK(most == 10);
}

TEST_CASE("queue_manager: a stop during a pass leaves the rest in the queue", "[connection]")
{
    TraceRecorder trace;
    Queue queue;
    const auto first = std::make_shared<LoggingRequest>(queue.log, "a", std::vector<DWORD>{2});
    first->onStep = [&] { queue.manager->SignalStop(); };
    queue.manager->add(first);
    queue.Add("b");
    REQUIRE(queue.manager->begin(kPeriodMs) == S_OK);
    queue.log.WaitFor("queue filled", 4); // added twice, armed, and the tick that was cut short
    queue.manager->stop();
    CHECK(queue.log.Count("step a") == 1);
    CHECK(queue.log.Count("step b") == 0);
    CHECK(queue.log.Count("gone b") == 0);
    CHECK(trace.Count("queue_manager::process - CANCELLED") == 1);
    queue.manager.reset();
    CHECK(queue.log.Count("step b") == 0);
    CHECK(queue.log.Count("gone b") == 1);
}

TEST_CASE("queue_manager: it traces under the names that it always had", "[connection]")
{
    TraceRecorder trace;
    CallLog log;
    queue_manager manager;
    REQUIRE(manager.begin(kNeverMs) == S_OK);
    manager.OnTimer(); // arms
    CHECK(trace.Count("queue_manager::Execute - enter") == 1);
    CHECK(trace.Count("queue_manager::process - enter") == 0);
    manager.add(std::make_shared<LoggingRequest>(log, "a"));
    CHECK(trace.Count("queue_manager::add queue") == 1);
    manager.OnTimer();
    CHECK(trace.Count("queue_manager::Execute - enter") == 2);
    CHECK(trace.Count("queue_manager::process - enter") == 1);
    CHECK(log.All() == Calls{"step a", "complete a", "gone a"});
    for (const auto& message : trace.Messages())
    {
        CAPTURE(message.text);
        CHECK(message.level == (message.text == "queue_manager::add queue" ? 3 : 4));
    }
}

TEST_CASE("queue_manager: before begin a tick works nothing", "[connection]")
{
    Queue queue;
    queue.Add("a");
    queue.manager->OnTimer();
    queue.manager->OnTimer();
    queue.manager->OnTimer();
    CHECK(queue.log.All() == Calls{"queue filled", "queue filled", "queue filled", "queue filled"});
}

TEST_CASE("queue_manager: begin takes the arming back", "[connection]")
{
    Queue queue;
    queue.Add("a");
    queue.manager->OnTimer(); // before begin it counts for nothing
    REQUIRE(queue.manager->begin(kNeverMs) == S_OK);
    queue.manager->OnTimer();
    CHECK(queue.log.Count("step a") == 0);
    queue.manager->OnTimer();
    CHECK(queue.log.Count("step a") == 1);
}

TEST_CASE("queue_manager: its destructor lets go of what is queued, once and unworked",
          "[connection]")
{
    const auto period = GENERATE(DWORD{0}, kNeverMs); // 0: never begun
    Queue queue;
    queue.Add("a");
    queue.Add("b");
    if (period != 0)
    {
        REQUIRE(queue.manager->begin(period) == S_OK);
        queue.manager->OnTimer();
    }
    const ImportPatch<"TerminateThread", decltype(::TerminateThread)> force(
        "kernel32.dll", [](HANDLE, DWORD) -> WINBOOL { return TRUE; });
    queue.manager.reset();
    CHECK(force.Calls() == 0); // what a wait in vain ends with
    CHECK(queue.log.Count("gone a") == 1);
    CHECK(queue.log.Count("gone b") == 1);
    CHECK(queue.log.Count("step a") == 0);
    CHECK(queue.log.Count("queue empty") == 0); // nobody is told
}

TEST_CASE("queue_manager: its destructor waits for the step or the completion that runs",
          "[connection]")
{
    const bool inStep = GENERATE(true, false);
    CAPTURE(inStep);
    Queue queue;
    auto first = std::make_shared<LoggingRequest>(queue.log, "a");
    TestEvent inside;
    std::atomic<bool> wasOut = false;
    const auto untilQueueIsDropped = [&] {
        inside.Set();
        queue.log.WaitFor("gone b");
        wasOut = true;
    };
    if (inStep)
    {
        first->onStep = untilQueueIsDropped;
    }
    else
    {
        first->onComplete = [&](DWORD*) { untilQueueIsDropped(); };
    }
    queue.manager->add(first);
    first.reset();
    queue.Add("b");
    REQUIRE(queue.manager->begin(kPeriodMs) == S_OK);
    inside.Wait();
    queue.manager.reset();
    CHECK(wasOut);
    const Calls calls = queue.log.All();
    CHECK(queue.log.Count("step a") == 1);
    CHECK(queue.log.Count("step b") == 0);
    CHECK(queue.log.Count("complete a") == 1);
    CHECK(queue.log.Count("gone a") == 1);
    CHECK(queue.log.Count("gone b") == 1);
    CHECK(calls.back() == "gone a");
    ::Sleep(5 * kPeriodMs); // an answer that must not come
    CHECK(queue.log.All() == calls);
}

TEST_CASE("queue_manager: eight threads add at once", "[connection]")
{
    constexpr unsigned kThreads = 8;
    constexpr int kEach = 150;
    CallLog log;
    std::atomic<int> completed = 0;
    TestEvent all;
    queue_manager manager;
    REQUIRE(manager.begin(1) == S_OK);
    RunTogether(kThreads, [&](unsigned number) {
        for (int i = 0; i < kEach; ++i)
        {
            const auto request = std::make_shared<LoggingRequest>(log, std::to_string(number));
            request->onComplete = [&](DWORD*) {
                if (++completed == kThreads * kEach)
                {
                    all.Set();
                }
            };
            manager.add(request);
        }
    });
    all.Wait();
    manager.stop();
    for (unsigned number = 0; number < kThreads; ++number)
    {
        CHECK(log.Count("step " + std::to_string(number)) == kEach);
        CHECK(log.Count("complete " + std::to_string(number)) == kEach);
        CHECK(log.Count("gone " + std::to_string(number)) == kEach);
    }
}

TEST_CASE("queue_manager: 40 lives with a random moment of death", "[connection]")
{
    constexpr int kRequests = 20;
    std::uint32_t random = 20240229;
    for (int life = 0; life < 40; ++life)
    {
        CallLog log;
        {
            queue_manager manager;
            for (int i = 0; i < kRequests; ++i)
            {
                const auto request = std::make_shared<LoggingRequest>(
                    log, "a", std::vector<DWORD>{static_cast<DWORD>(i % 3), 2, 3});
                request->onStep = [] { ::Sleep(1); };
                manager.add(request);
            }
            REQUIRE(manager.begin(1) == S_OK);
            random = random * 1664525 + 1013904223;
            ::Sleep((random >> 16) % 60);
        }
        REQUIRE(log.Count("gone a") == kRequests);
        REQUIRE(log.Count("complete a") <= kRequests);
    }
}

TEST_CASE("queue_manager: handles are back to where they were", "[connection]")
{
    const auto live = [] {
        Queue queue;
        queue.Add("a");
        queue.manager->Hold(true, 5);
        REQUIRE(queue.manager->begin(1) == S_OK);
        queue.log.WaitFor("gone a");
        queue.manager.reset();
    };
    live();
    const std::size_t before = CurrentUsage().handles;
    for (int round = 0; round < 10; ++round)
    {
        live();
    }
    // The worker's thread may still be on its last instructions.
    std::size_t after = CurrentUsage().handles;
    const ULONGLONG limit = ::GetTickCount64() + kWaitLimitMs;
    while (after > before && ::GetTickCount64() < limit)
    {
        ::Sleep(10);
        after = CurrentUsage().handles;
    }
    CHECK(after <= before);
}

TEST_CASE("queue_manager: the operations stand in the slots that they always had", "[connection]")
{
    struct Opened : queue_manager
    {
        using queue_manager::ProcessHeld;
    };
    CHECK(VirtualSlot(&queue_manager::Run) == 2);
    CHECK(VirtualSlot(&queue_manager::OnThreadEnd) == 3);
    CHECK(VirtualSlot(&queue_manager::Start) == 4);
    CHECK(VirtualSlot(&queue_manager::SignalStop) == 5);
    CHECK(VirtualSlot(&queue_manager::add) == 6);
    CHECK(VirtualSlot(&queue_manager::AddNotifier) == 7);
    CHECK(VirtualSlot(&queue_manager::RemoveNotifier) == 8);
    CHECK(VirtualSlot(&queue_manager::NotifyState) == 9);
    CHECK(VirtualSlot(&queue_manager::Hold) == 10);
    CHECK(VirtualSlot(&Opened::ProcessHeld) == 11);
    CHECK(VirtualSlot(&CONNECTION_MANAGER::state_notifier::OnQueueState) == 0);
}
